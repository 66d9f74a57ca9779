# shellcheck shell=sh
# Clean Debian 12 systems in folders, for scripts that try things as on a machine of somebody's own and
# read this in. They need debootstrap, and root or sudo.
asRoot=
[ "$(id -u)" = 0 ] || asRoot=sudo

# new_system FOLDER LOG: makes one, which reaches the archives as this machine does. All are copies of a
# first one, build/bare-system.
new_system() {
    first=$PWD/build/bare-system
    if [ ! -e "$first" ]; then
        $asRoot rm -rf --one-file-system "$first.new"
        $asRoot unshare --mount debootstrap --variant=minbase bookworm "$first.new" >"$2"
        # None outlives a power cut, so nothing need be on the disk before the next package is.
        echo force-unsafe-io | $asRoot tee "$first.new/etc/dpkg/dpkg.cfg.d/bare-system" >/dev/null
        $asRoot mv "$first.new" "$first"
    fi
    $asRoot cp -a "$first" "$1"
    for file in apt/apt.conf.d resolv.conf hosts; do
        $asRoot cp -rLT "/etc/$file" "$1/etc/$file"
    done
    within "$1" apt-get update -q >>"$2"
}

# within FOLDER COMMAND...: runs it as that system's root, with processes and mounts of its own. Not in
# a chroot, where nobody may make the namespaces of a sandbox.
within() {
    system=$1
    shift
    # shellcheck disable=SC2016 # for the other shell
    $asRoot unshare --mount --pid --fork --kill-child sh -euc '
        system=$1
        shift
        mount --bind "$system" "$system"
        mount -t proc proc "$system/proc"
        mount -t devpts -o newinstance,ptmxmode=0666,mode=0620 devpts "$system/dev/pts"
        mount -t tmpfs tmpfs "$system/dev/shm"
        mkdir -p "$system/mnt/old"
        cd "$system"
        pivot_root . mnt/old
        umount -l /mnt/old
        exec "$@"' sh "$system" \
        /usr/bin/env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
        LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS-}" "$@"
}
