#!/bin/sh
# Installs a build as people do and uses what is there: installed_tree_test.sh BUILD CASE [WHAT]
set -eu
build=$1
case=$2
here=$(cd "$(dirname "$0")" && pwd)
top=$(mktemp -d)
trap 'rm -rf "$top"' EXIT
export HOME="$top/home" XDG_RUNTIME_DIR="$top/run" TARN_LOG=-
unset XDG_DATA_HOME XDG_DATA_DIRS XDG_CACHE_HOME
mkdir -m 700 "$HOME" "$XDG_RUNTIME_DIR"
convert -size 800x600 -seed 7 plasma:tomato-steelblue -quality 97 "$top/photo.jpg"

install_into() {
    cmake --install "$build" --prefix "$1" >"$top/installation"
}

# use TREE [CLIENT]: a photo by each service, on a bus that finds the tree's activation files.
use() {
    rm -f "$top"/out*
    # shellcheck disable=SC2016 # for the other shell
    XDG_DATA_DIRS="${XDG_DATA_DIRS-$1/share}" dbus-run-session -- sh -euc '
        "$1" resize-image --always "$2/photo.jpg" "$2/out1.jpg" --size 50k
        "$1" fit "$2/photo.jpg" "$2/out2.jpg" --size 50k' \
        sh "${2-$1/bin/tarn-transcode}" "$top" >"$top/log" 2>&1 || {
        cat "$top/log"
        return 1
    }
    for made in "$top/out1.jpg" "$top/out2.jpg"; do
        test "$(identify -format %m "$made")" = JPEG
        test "$(stat -c %s "$made")" -le 50000
    done
}

# build_against TREE: a program of somebody's own.
build_against() {
    cat >"$top/caller.c" <<'PROGRAM'
#include <vela/vela.h>
int main(void) {
  VSError error;
  VSErrorInit(&error);
  VSErrorPrint(&error, stdout);
  return 0;
}
PROGRAM
    PKG_CONFIG_PATH=$(dirname "$(find "$1" -name vela.pc)")
    export PKG_CONFIG_PATH
    # pkg-config marks blanks for a shell to take apart.
    eval "cc -Wall -Werror '$top/caller.c' -o '$top/caller' $(pkg-config --cflags --libs vela)"
    LD_LIBRARY_PATH="$(dirname "$PKG_CONFIG_PATH")" "$top/caller"
}

files() {
    find "$1" ! -type d | sort
}

case $case in
blanks)
    install_into "$top/a tree of mine"
    use "$top/a tree of mine"
    build_against "$top/a tree of mine"
    ;;
signs)  # that a shell would see something in
    install_into "$top/a tree's \"own\" \$HOME & 100%"
    use "$top/a tree's \"own\" \$HOME & 100%"
    ;;
home)  # where a user's bus looks by itself
    install_into "$HOME/.local"
    export XDG_DATA_HOME="$HOME/.local/share" XDG_DATA_DIRS=/nonexistent
    use "$HOME/.local"
    ;;
destdir)
    DESTDIR="$top/staging" install_into "$top/real"
    test ! -e "$top/real"
    mv "$top/staging$top/real" "$top/real"
    use "$top/real"
    build_against "$top/real"
    ;;
moved)
    install_into "$top/first"
    mv "$top/first" "$top/second"
    # As README tells.
    sed -i "s|$top/first|$top/second|" "$top"/second/share/dbus-1/services/* \
        "$top"/second/share/systemd/user/*
    test -z "$(grep -rl "$top/first" "$top/second")"
    use "$top/second"
    ;;
uninstalled)
    tree="$top/a tree's own"
    mkdir -p "$tree/share/dbus-1/services" "$tree/bin"
    touch "$tree/share/dbus-1/services/another.service" "$tree/bin/another"
    files "$tree" >"$top/before"
    for staging in "" "$top/staging"; do
        export DESTDIR="$staging"
        install_into "$tree"
        test "$(files "$staging$tree" | wc -l)" -gt 10
        cmake --build "$build" --target uninstall >"$top/removal"
        test -z "$(find "$staging$tree" -path '*tarn*' -o -path '*vela*')"
    done
    files "$tree" | diff "$top/before" -
    test -z "$(files "$top/staging")"
    if cmake --build "$build" --target uninstall >"$top/removal" 2>&1; then exit 1; fi
    grep -q "nothing was installed from here" "$top/removal"
    ;;
unit)  # that systemd understands, and under whose restrictions the service works; the bus leaves it be
    tree="$top/a 100% \$tree"
    install_into "$tree"
    unit="$tree/share/systemd/user/tarn-transcode.service"
    if grep -q SystemdService "$tree"/share/dbus-1/services/*; then exit 1; fi
    systemd-analyze --user --man=no verify "$unit" >"$top/verified" 2>&1 || {
        cat "$top/verified"
        exit 1
    }
    test ! -s "$top/verified"
    cat >"$tree/share/dbus-1/services/com.tarn.transcode.service" <<FILE
[D-BUS Service]
Name=com.tarn.transcode
Exec=$here/as_unit.py '$unit' '$tree/libexec/tarn-transcode/start'
SystemdService=tarn-transcode.service
FILE
    use "$tree"
    ffmpeg -v error -nostdin -f lavfi -i testsrc=size=320x240:rate=25:duration=2 \
        -f lavfi -i sine=duration=2 -c:v mpeg4 -q:v 2 -c:a aac "$top/clip.mp4"
    XDG_DATA_DIRS="$tree/share" dbus-run-session -- "$tree/bin/tarn-transcode" resize-movie --quiet \
        "$top/clip.mp4" "$top/out.mp4" --max-size 60k
    test "$(stat -c %s "$top/out.mp4")" -le 60000
    # What gives in to everything, under the unit alone.
    mkdir "$top/prey"
    sleep 60 &
    prey=$!
    ATTACK_FOLDER="$top/prey" ATTACK_PROCESS=$prey "$here/as_unit.py" "$unit" "$3" x "file:$top/x" \
        2>"$top/attacks" || :
    kill "$prey"
    grep -q "^tried " "$top/attacks"
    for attack in "socket 2" "socket 10" "socket 16" trace keyring bpf perf userfaultfd mount chroot \
        "a namespace" "a child in a namespace" "read another's memory at once"; do
        if grep -x "ALLOWED $attack" "$top/attacks"; then exit 1; fi
    done
    ;;
desktop)  # what file managers call, with a notification that is written down
    tree="$top/tree"
    install_into "$tree"
    desktop-file-validate "$tree"/share/applications/*.desktop
    appstreamcli validate --no-net "$tree"/share/metainfo/*.xml >"$top/validated"
    mkdir "$top/programs" "$top/my pictures"
    printf '#!/bin/sh\nprintf "%%s|" "$@" >>"%s"\n' "$top/told" >"$top/programs/notify-send"
    chmod +x "$top/programs/notify-send"
    export PATH="$tree/bin:$top/programs:$PATH" XDG_DATA_DIRS="$tree/share"
    cp "$top/photo.jpg" "$top/my pictures/-a b.jpg"
    cp "$top/photo.jpg" "$top/my pictures/c.jpg"
    dbus-run-session -- tarn-transcode-for-mail "$top/my pictures/-a b.jpg" "$top/my pictures/c.jpg"
    test "$(ls "$top/my pictures/For mail")" = "$(printf '%s\n' '-a b.jpg' c.jpg)"
    grep -q "|Fit for a mail: -a b.jpg and 1 more|$top/my pictures/For mail|" "$top/told"
    echo "no photo" >"$top/none.jpg"
    rm "$top/told"
    if dbus-run-session -- tarn-transcode-for-mail "$top/none.jpg"; then exit 1; fi
    grep -q "|Not made fit for a mail: none.jpg|tarn-transcode: .*none.jpg: The input is no photo" "$top/told"
    ;;
absolute)  # scripts/try-install, where each folder of the TREE is
    rm -rf "$3"
    if cmake --install "$build" --prefix "$top/another" >"$top/installation" 2>&1; then exit 1; fi
    grep -q "give the prefix when configuring" "$top/installation"
    cmake --install "$build" >"$top/installation"
    test ! -e "$3/prefix"
    export XDG_DATA_DIRS="$3/data"
    use "$3" "$3/programs/tarn-transcode"
    build_against "$3"
    cmake --build "$build" --target uninstall >"$top/removal"
    test -z "$(files "$3")"
    # For a package: the folders stand below DESTDIR, and the files name them without it.
    export DESTDIR="$top/staging"
    cmake --install "$build" >"$top/installation"
    test -z "$(files "$3")"
    test -x "$DESTDIR$3/programs/tarn-transcode"
    if grep -r "$top/staging" "$DESTDIR"; then exit 1; fi
    cmake --build "$build" --target uninstall >"$top/removal"
    test -z "$(files "$DESTDIR")"
    ;;
apkbuild)  # that it finds what it names, as abuild calls it, which Debian does not have
    cmake() {
        command cmake "$@" --prefix /usr
    }
    amove() {
        mkdir -p "$subpkgdir/${1%/*}"
        # shellcheck disable=SC2086 # a pattern of names
        (cd "$pkgdir" && mv $1 "$subpkgdir/${1%/*}")
    }
    . "$here/../../packaging/APKBUILD"
    grep -q "^project(tarn-transcode VERSION $pkgver " "$here/../../CMakeLists.txt"
    ln -s "$build" "$top/build"
    cd "$top"
    pkgdir="$top/package"
    package >"$top/installation"
    test -x "$pkgdir/usr/bin/tarn-transcode"
    for library in libvela libtarnfit; do
        subpkgdir="$top/$library"
        $library
        test "$(files "$subpkgdir/usr/lib" | wc -l)" = 2
        test -z "$(find "$pkgdir/usr/lib" -name "$library.so.*")"
    done
    ;;
optimised)  # by the last of its options, whatever the build type says before
    options=$(grep '"command".*plane_resampler\.cpp' "$build/compile_commands.json" |
        sed 's/.*\(-O[^ ]*\) .*/\1/' | sort | uniq -c | xargs)
    test "$options" = "1 -O3"
    ;;
exports)  # the C calls alone
    install_into "$top/tree"
    names=$(nm -D --defined-only "$(find "$top/tree" -name libvela.so)" | sed 's/.* //')
    echo "$names" | grep -qx VSCall
    test -z "$(echo "$names" | grep -v '^VS[A-Z][A-Za-z]*$')"
    ;;
esac
