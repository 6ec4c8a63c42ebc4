#!/bin/bash
# Called by sandbox.sh as the first process of the new namespaces: assembles the sandbox's root
# folder, enters it and goes on with sandbox_init.sh. All mounts are seen by these namespaces only.
set -euo pipefail

# A mount point that exists everywhere and below which no checkout lies. The host's own is untouched.
readonly root=/sys

memory_folder() {
    mkdir -p "$root$1"
    mount -t tmpfs -o "mode=$2,size=$3" sandbox "$root$1"
}

system_folders() {
    local name
    for name in usr etc bin sbin lib lib32 lib64 libx32; do
        if [[ -L /$name ]]; then
            cp -a "/$name" "$root/$name"
        elif [[ -d /$name ]]; then
            mkdir "$root/$name"
            mount --rbind "/$name" "$root/$name"
            mount -o remount,bind,ro "$root/$name"
        fi
    done
}

devices() {
    local name
    memory_folder /dev 0755 1m
    for name in null zero full random urandom tty; do
        touch "$root/dev/$name"
        mount --bind "/dev/$name" "$root/dev/$name"
    done
    mkdir "$root/dev/pts"
    mount -t devpts -o newinstance,ptmxmode=0666,mode=0620 devpts "$root/dev/pts"
    memory_folder /dev/shm 1777 256m
    ln -s pts/ptmx "$root/dev/ptmx"
    ln -s /proc/self/fd "$root/dev/fd"
    ln -s fd/0 "$root/dev/stdin"
    ln -s fd/1 "$root/dev/stdout"
    ln -s fd/2 "$root/dev/stderr"
}

own_folders() {
    memory_folder /tmp 1777 2g
    memory_folder /run 0755 2g
    memory_folder /flash 0755 1g
    memory_folder /vantor 0755 256m
    memory_folder /var 0755 256m
    memory_folder /root 0700 256m
    mkdir -p "$root"/flash/{config,upload} "$root"/vantor/{bin,webui/wms,webui/sfmt} "$root/var/lib"
    mkdir -p "$root"/run/{lock,postgresql,wms/sanitizer}
    chmod 1777 "$root/run/wms/sanitizer"
    ln -s /run "$root/var/run"
    ln -s /tmp "$root/var/tmp"
}

# The checkout has one short name, and its own, which the build's files refer to. What is written to it
# goes to memory, so that nothing of root's stays behind in it, but for the folder that was asked for.
checkout() {
    mkdir "$root/checkout" "$root/.lower"
    memory_folder /.upper 0755 2g
    mkdir "$root"/.upper/{files,work}
    mount --bind "$SANDBOX_CHECKOUT" "$root/.lower"
    mount -t overlay -o "lowerdir=$root/.lower,upperdir=$root/.upper/files,workdir=$root/.upper/work" \
        checkout "$root/checkout"
    [[ -z $SANDBOX_WRITABLE ]] || mount --bind "$SANDBOX_CHECKOUT/$SANDBOX_WRITABLE" "$root/checkout/$SANDBOX_WRITABLE"
    umount "$root/.lower"
    umount --lazy "$root/.upper"
    rmdir "$root/.lower" "$root/.upper"
    mkdir -p "$root$SANDBOX_CHECKOUT"
    [[ $SANDBOX_CHECKOUT == /checkout ]] ||
        mount --bind "$root/checkout" "$root$SANDBOX_CHECKOUT"
}

mount -t tmpfs -o mode=0755,size=16m sandbox "$root"
system_folders
devices
own_folders
checkout
mkdir "$root/proc" "$root/.host"
mount -t proc proc "$root/proc"
cd "$root"
pivot_root . .host
umount --lazy /.host
rmdir /.host
cd /checkout
exec /bin/bash scripts/sandbox_init.sh "$@"
