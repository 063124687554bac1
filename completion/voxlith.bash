# Completion for voxlith, voxlith-run, voxlith-tools and voxlith-plot in bash.

# The long options that a command's own --help names: new options need no change here.
_voxlith_options_of() {
    "$@" --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]*' | sort -u
}

# The words that a value of an option may have: those that --help shows in braces, or before "or a code".
_voxlith_values_of() {
    local option=$1 help
    shift
    help=$("$@" --help 2>/dev/null | grep -E -- "^ +$option ")
    if [[ $help =~ [:\ ]\{([^}]*)\} ]]; then
        tr ',' ' ' <<<"${BASH_REMATCH[1]}"
    elif [[ $help =~ :\ (.*),\ or\ a\ code ]]; then
        tr ',' ' ' <<<"${BASH_REMATCH[1]}"
    fi
}

_voxlith() {
    local word=${COMP_WORDS[COMP_CWORD]}
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -f -X '!*.inp' -- "$word"; compgen -d -- "$word")
        compopt -o filenames 2>/dev/null
    else
        COMPREPLY=($(compgen -W 'NOFAST Misfit= Tradeoff= Offset= Clip= ObsClip=' -- "$word"))
        [[ ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
    fi
    return 0
}

_voxlith_run() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    if [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$(_voxlith_options_of "${COMP_WORDS[0]}")" -- "$word"))
    elif [[ $before == --model-norm ]]; then
        COMPREPLY=($(compgen -W 'smooth compact blocky' -- "$word"))
    elif [[ $before == --json-log ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        compopt -o filenames 2>/dev/null
    elif [[ " ${COMP_WORDS[*]:1:COMP_CWORD-1} " == *.inp\ * ]]; then
        COMPREPLY=($(compgen -W 'Misfit= Tradeoff= Offset= Clip= ObsClip=' -- "$word"))
        [[ ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null
    else
        mapfile -t COMPREPLY < <(compgen -f -X '!*.inp' -- "$word"; compgen -d -- "$word")
        compopt -o filenames 2>/dev/null
    fi
    return 0
}

_voxlith_tools() {
    local program=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]}
    if [ "$COMP_CWORD" -eq 1 ]; then
        local commands
        commands=$("$program" --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z-]\+\).*/\1/p')
        COMPREPLY=($(compgen -W "$commands --help" -- "$word"))
    elif [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$(_voxlith_options_of "$program" "${COMP_WORDS[1]}")" -- "$word"))
    else
        local before=${COMP_WORDS[COMP_CWORD - 1]} values=
        [[ $before == --* ]] && values=$(_voxlith_values_of "$before" "$program" "${COMP_WORDS[1]}")
        if [ -n "$values" ]; then
            COMPREPLY=($(compgen -W "$values" -- "$word"))
        else
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            compopt -o filenames 2>/dev/null
        fi
    fi
}

# --only and --format take any number of words: the last option before the cursor decides.
_voxlith_plot() {
    local word=${COMP_WORDS[COMP_CWORD]} at=$((COMP_CWORD - 1))
    if [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$(_voxlith_options_of "${COMP_WORDS[0]}")" -- "$word"))
        return
    fi
    while [[ $at -gt 0 && ${COMP_WORDS[at]} != --* ]]; do
        at=$((at - 1))
    done
    case ${COMP_WORDS[at]} in
        --only)
            COMPREPLY=($(compgen -W 'convergence data sections vectors stereonet zscores' -- "$word"))
            return ;;
        --format)
            COMPREPLY=($(compgen -W 'png pdf svg' -- "$word"))
            return ;;
        --at)
            COMPREPLY=($(compgen -W 'middle largest' -- "$word"))
            return ;;
        --control | --true | --topography)
            if [ "$at" -eq $((COMP_CWORD - 1)) ]; then
                mapfile -t COMPREPLY < <(compgen -f -- "$word")
                compopt -o filenames 2>/dev/null
                return
            fi ;;
    esac
    mapfile -t COMPREPLY < <(compgen -d -- "$word")
    compopt -o filenames 2>/dev/null
}

complete -F _voxlith voxlith
complete -F _voxlith_run voxlith-run voxlith-run-mpi
complete -F _voxlith_tools voxlith-tools
complete -F _voxlith_plot voxlith-plot
