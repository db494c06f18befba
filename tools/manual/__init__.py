# SPDX-License-Identifier: MIT
"""Man pages of the libraries' functions and of the tool; tools/man-pages is the program."""
