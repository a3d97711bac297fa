#compdef -P korvid(|-*)
# Completion of korvid's programs for zsh; installed under the name of each.

local -a offers
offers=("${(@f)$(${${(%):-%x}:A:h}/../../${words[1]:t}/complete ${~words[1]} "${(@Q)words[2,CURRENT]}" 2>/dev/null)}")
case $offers[1] in
    '<files>')
        compset -P '--*='
        _files
        ;;
    '<hosts>')
        compset -P '--*='
        _hosts
        ;;
    ?*)
        offers=("${(@)offers//:/\\:}")
        offers=("${(@)offers/$'\t'/:}")
        _describe korvid offers
        ;;
esac
