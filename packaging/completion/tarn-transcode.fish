# Completion for fish, from the client's own help.

function __tarn_transcode_commands
    tarn-transcode help 2>/dev/null | string replace -rf '^  ([a-z][a-z-]*) +(.*)' '$1\t$2'
end

function __tarn_transcode_options
    set -l words (commandline -opc)
    tarn-transcode $words[2] --help 2>&1 | string match -ra -- '--[a-z][a-z-]*' | sort -u
end

complete -c tarn-transcode -f -n 'test (count (commandline -opc)) -eq 1' -a '(__tarn_transcode_commands)'
complete -c tarn-transcode -f -n 'test (count (commandline -opc)) -gt 1; and string match -q -- "-*" (commandline -ct)' \
    -a '(__tarn_transcode_options)'
