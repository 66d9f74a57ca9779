# Completion for bash. The client's own help is the source of all three shells' completions: nothing
# here names a command or an option.

_tarn_transcode() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} help words
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        words=$(tarn-transcode help 2>/dev/null | sed -n 's/^  \([a-z][a-z-]*\) .*/\1/p')
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
        return
    fi
    help=$(tarn-transcode "${COMP_WORDS[1]}" --help 2>&1)
    if [[ $word == -* ]]; then
        words=$(grep -o -e '--[a-z][a-z-]*' <<<"$help")
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word" | sort -u)
    elif [[ $before == -* && $help =~ [[:space:],]"$before"(,[a-z-]+)*\ ([A-Z]+) ]]; then
        case ${BASH_REMATCH[2]} in
        DIR) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
        *) compopt +o default 2>/dev/null ;;  # a value, no file
        esac
    fi
}
complete -o default -F _tarn_transcode tarn-transcode
