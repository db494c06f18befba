# Completion of norv for bash. Made by tools/norv/generate: change that.

declare -A _norv_words=(
    ["norv"]="can dma flash fpga gpio i2c led mtd overlay pwm spi stat uart uio uuid -h --help --version"
    ["norv can"]="dump send -h --help"
    ["norv can dump"]="-h --help -n --count -t --timeout --json"
    ["norv can send"]="-h --help"
    ["norv dma"]="kinds test -h --help"
    ["norv dma kinds"]="-h --help --json"
    ["norv dma test"]="-h --help --json"
    ["norv flash"]="info read write erase -h --help"
    ["norv flash info"]="-h --help --emmc --json"
    ["norv flash read"]="-h --help --emmc -a --address -l --length --append"
    ["norv flash write"]="-h --help --emmc -a --address --offset --end -y --yes"
    ["norv flash erase"]="-h --help --emmc -a --address -l --length -y --yes"
    ["norv fpga"]="status program -h --help"
    ["norv fpga status"]="-h --help --json"
    ["norv fpga program"]="-h --help -f --fpga -y --yes"
    ["norv gpio"]="get set watch free -h --help"
    ["norv gpio get"]="-h --help -i --input -l --active-low --json"
    ["norv gpio set"]="-h --help --hold -l --active-low"
    ["norv gpio watch"]="-h --help -e --edge -n --count -t --timeout --json"
    ["norv gpio free"]="-h --help"
    ["norv i2c"]="detect get set dump transfer -h --help"
    ["norv i2c detect"]="-h --help --json"
    ["norv i2c get"]="-h --help -n --count --json"
    ["norv i2c set"]="-h --help"
    ["norv i2c dump"]="-h --help --json"
    ["norv i2c transfer"]="-h --help --json"
    ["norv led"]="list set trigger blink shot -h --help"
    ["norv led list"]="-h --help --json"
    ["norv led set"]="-h --help"
    ["norv led trigger"]="-h --help --json"
    ["norv led blink"]="-h --help --on --off"
    ["norv led shot"]="-h --help"
    ["norv mtd"]="list info badblocks -h --help"
    ["norv mtd list"]="-h --help --json"
    ["norv mtd info"]="-h --help --json"
    ["norv mtd badblocks"]="-h --help --json"
    ["norv overlay"]="load status unload -h --help"
    ["norv overlay load"]="-h --help -n --name -y --yes"
    ["norv overlay status"]="-h --help --json"
    ["norv overlay unload"]="-h --help -y --yes"
    ["norv pwm"]="list set start stop capture free -h --help"
    ["norv pwm list"]="-h --help --json"
    ["norv pwm set"]="-h --help --polarity"
    ["norv pwm start"]="-h --help"
    ["norv pwm stop"]="-h --help"
    ["norv pwm capture"]="-h --help --json"
    ["norv pwm free"]="-h --help"
    ["norv spi"]="transfer -h --help"
    ["norv spi transfer"]="-h --help -r --read -s --speed -m --mode -b --bits --lsb-first --json"
    ["norv stat"]="-h --help -i --interface --interval -w --watch --json"
    ["norv uart"]="console send recv lines -h --help"
    ["norv uart console"]="-h --help -b --baud --data-bits --stop-bits --parity --flow"
    ["norv uart send"]="-h --help -b --baud --data-bits --stop-bits --parity --flow -f --file -x --hex -l --line"
    ["norv uart recv"]="-h --help -b --baud --data-bits --stop-bits --parity --flow -n --count -t --timeout -x --hex --json"
    ["norv uart lines"]="-h --help -b --baud --data-bits --stop-bits --parity --flow --rts --dtr -w --watch --json"
    ["norv uio"]="list read write wait bind -h --help"
    ["norv uio list"]="-h --help --json"
    ["norv uio read"]="-h --help --fixed -n --count --json"
    ["norv uio write"]="-h --help --fixed"
    ["norv uio wait"]="-h --help -n --count -t --timeout --json"
    ["norv uio bind"]="-h --help"
    ["norv uuid"]="-h --help -n --count --json"
)

_norv() {
    local path=norv word index
    for ((index = 1; index < COMP_CWORD; ++index)); do
        word=${COMP_WORDS[index]}
        [[ -z ${_norv_words["$path $word"]+known} ]] || path+=" $word"
    done
    mapfile -t COMPREPLY < <(compgen -W "${_norv_words[$path]}" -- "${COMP_WORDS[COMP_CWORD]}")
}

# Where nothing of the tool fits, files do.
complete -o default -F _norv norv
