# Completion for zsh: each command with the words that may follow it, and what they mean.
def commands($path): ($path + .name) as $here | {path: $here, command: .}, (.commands[] | commands($here + " "));
def quoted: "'" + (gsub(":"; "\\:") | gsub("'"; "'\\''")) + "'";
def described($name; $help): "'" + ($name | gsub(":"; "\\:")) + ":" + ($help | gsub("'"; "'\\''")) + "'";
def words: [(.commands[] | described(.name; .help)), (.options[] | .help as $help | .names[] | described(.; $help))];

"#compdef norv
# Completion of norv for zsh. Made by tools/norv/generate: change that.

_norv() {
    local -a choices
    local command_path=norv word
    for word in ${words[2,CURRENT-1]}; do
        _norv_choices \"$command_path $word\" && command_path+=\" $word\"
    done
    _norv_choices $command_path
    _describe norv choices || _files
}

# Fills `choices` with what may follow a command; fails for what is none.
_norv_choices() {
    case $1 in",
(commands("") | "    '\(.path)')", "        choices=(", (.command | words[] | "            " + .), "        )", "        ;;"),
"    *) return 1 ;;
    esac
}

_norv \"$@\""
