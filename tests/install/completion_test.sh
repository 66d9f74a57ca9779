#!/bin/sh
# What the shells offer: completion_test.sh SOURCES CLIENT-FOLDER
set -eu
sources=$1
export PATH="$2:$PATH"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export HOME="$folder"
cd "$folder"

# WORDS... end in the one that is completed; each prints what is offered, a line each.
in_bash() {
    bash -c 'source "$0" && COMP_WORDS=("$@") && COMP_CWORD=$(($# - 1)) && _tarn_transcode &&
        printf "%s\n" "${COMPREPLY[@]}"' "$sources/tarn-transcode.bash" "$@"
}
in_zsh() {
    zsh -f -c 'file=$1; shift; words=("$@"); CURRENT=$#; PREFIX=$words[-1]
        _describe() { print -l -- ${${(P)2}%%:*} }
        compadd() { shift; print -l -- ${(M)@:#$PREFIX*} }
        _files() { print files }
        source $file' zsh "$sources/tarn-transcode.zsh" "$@"
}
in_fish() {
    fish --no-config -c "source '$sources/tarn-transcode.fish'; complete -C '$*'" | cut -f 1
}
offers() {
    wanted=$1
    shift
    "$@" >offered
    grep -qx -e "$wanted" offered || {
        echo "$*: no $wanted among:"
        cat offered
        exit 1
    }
}

for shell in in_bash in_zsh in_fish; do
    offers resize-image "$shell" tarn-transcode re
    offers resize-movie "$shell" tarn-transcode re
    offers min-bitrate "$shell" tarn-transcode m
    offers --size "$shell" tarn-transcode resize-image --s
    offers --passes "$shell" tarn-transcode resize-movie --p
    offers --keep-metadata "$shell" tarn-transcode fit --k
done
mkdir pictures
offers pictures in_bash tarn-transcode fit --out-dir pi
offers files in_zsh tarn-transcode info ph
touch photo.jpg
offers photo.jpg in_fish tarn-transcode info ph
test -z "$(in_bash tarn-transcode fit --size 1)"
