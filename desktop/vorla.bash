# Completion of vorla's commands, options and files in bash.
_vorla()
{
    local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} words
    if [ "$COMP_CWORD" -eq 1 ]; then
        words='info probe verify export import module help --help --version'
    else
        words='--module --channels --search --quiet --help'
        case $command in
        info) words+=' --json' ;;
        verify) words+=' --recursive --jobs' ;;
        export)
            words+=' --to --size --level --depth --depth-picture --linear --partial --jobs'
            words+=' --skip-existing --force'
            ;;
        import) words+=' --linear --matte --depth-scale --jobs --skip-existing --force' ;;
        esac
    fi
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --to) words='png exr' word=${word#=} ;;
    --channels) words='rgb matte all' ;;
    --depth) words='uint float' ;;
    *) [[ $word = -* || $COMP_CWORD -eq 1 ]] || return 0 ;; # a file
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -o default -F _vorla vorla
