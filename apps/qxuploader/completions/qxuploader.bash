# bash completion for qxuploader

_qxuploader()
{
    local current path previous command word
    current=${COMP_WORDS[COMP_CWORD]}
    previous=${COMP_WORDS[COMP_CWORD-1]}
    # As the file system has it: without the quoting of the command line.
    path=${current//\\/}
    path=${path#[\'\"]}
    local settings="--backend --upload-server --user-id --token --token-command --ca-file --store
        --documents --environment --proxy --no-proxy --config --json --verbose --help"
    local commands="upload background background-image download status tasks watch actions config"

    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case " $commands " in *" $word "*) command=$word; break ;; esac
    done

    case $previous in
        --environment)
            mapfile -t COMPREPLY < <(compgen -W "production test" -- "$current"); return ;;
        --ca-file|--config)
            compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$path"); return ;;
        --documents|--output)
            compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$path"); return ;;
        --backend|--upload-server|--user-id|--token|--token-command|--store|--proxy|--no-proxy|\
        --scope|--concurrent|--item-id|--item-type|--image-from|--tag|--field)
            return ;;
    esac

    if [[ $previous == tasks && $current != -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "list retry drop" -- "$current")
        return
    fi

    local options=
    case $command in
        "") options="$commands --version" ;;
        upload) options="--scope --item-id --item-type --image-from --tag --field --server-resize" ;;
        background) options="--scope --concurrent --wait --forget" ;;
        background-image) options="--scope --item-id --det --tag --concurrent --wait --forget" ;;
        download) options="--scope --output" ;;
        watch) options="--scope --concurrent --forget" ;;
    esac

    if [[ $current == -* || -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options $settings" -- "$current")
        return
    fi
    case $command in
        upload|background|background-image)
            compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$path") ;;
        watch)
            compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$path") ;;
    esac
}
complete -F _qxuploader qxuploader
