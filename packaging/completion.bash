# Completion of brickfall-audit and brickfall-view for bash: the arguments are those of --help.
_brickfall() {
    local word=$2 before=$3
    case $before in
        --file|--save|--keep|--export|--poster|--page) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        --frames) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
        --week) mapfile -t COMPREPLY < <(compgen -W "$(date -u +%G-W%V)" -- "$word") ;;
        *) mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null | grep -oE -- '--[a-z-]+' | sort -u)" -- "$word") ;;
    esac
}
complete -o filenames -F _brickfall brickfall-audit brickfall-view
