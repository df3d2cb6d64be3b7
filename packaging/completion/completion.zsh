#compdef mediagrabber gevctl
# SPDX-License-Identifier: MIT
# Zsh completion for mediagrabber and gevctl. The candidates come from ../lib/mediagrabber/complete, beside the directory of the program.

local program=${commands[$words[1]]:-$words[1]} line
local -a candidates assignments
for line in "${(@f)$("${program:h}/../lib/mediagrabber/complete" "$program" "${(@)words[2,CURRENT]}" 2>/dev/null)}"; do
    case $line in
        $'\tfiles') _files ;;
        $'\tdirectories') _files -/ ;;
        $'\tinterfaces') _net_interfaces ;;
        *=) assignments+=("$line") ;;
        ?*) candidates+=("$line") ;;
    esac
done
(( ! $#candidates )) || compadd -- $candidates
(( ! $#assignments )) || compadd -S '' -- $assignments
