# Completion of the daemons kelnmsd and kelrshd for bash: the options that the program's own help tells.

_kelstdmt_daemon() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $prev in
        --journal | --log | --pid-file) compopt -o filenames -o default ;;
        --base) compopt -o dirnames ;;
        --listen | --limit | --name | --port) ;;
        *) mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null | grep -oE -- '^ +(-[a-z],)?--[a-z-]+' |
            grep -oE -- '--[a-z-]+')" -- "$cur") ;;
    esac
}
complete -F _kelstdmt_daemon kelnmsd kelrshd
