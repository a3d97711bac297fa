# Completion of korvid's programs for fish; installed under the name of each.

set -g __korvid_share (dirname (status filename))/../..

function __korvid_offers
    set -l words (commandline -opc) (commandline -ct)
    set -l complete $__korvid_share/(basename $words[1])/complete
    set -l offers ($complete $words 2>/dev/null)
    switch "$offers[1]"
        case '<files>'
            __fish_complete_path (commandline -ct)
        case '<hosts>'
            __fish_print_hostnames
        case '*'
            printf '%s\n' $offers
    end
end

complete -c (basename (status filename) .fish) -f -a '(__korvid_offers)'
