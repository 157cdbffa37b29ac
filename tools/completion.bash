# Completion of tavnoview's arguments in bash.
_tavnoview() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local -A options=([json]="--select --object --depth" [dot]="--around")
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W "json archive check hex diff stats dot html --help" -- "$word")
    elif [ "$before" = -d ]; then
        mapfile -t COMPREPLY < <(compgen -f -X '!*.desc' -- "$word")
    elif [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "-d -o --help ${options[${COMP_WORDS[1]}]}" -- "$word")
    fi
}
complete -o default -F _tavnoview tavnoview
