#!/usr/bin/env bash
# The life of the packages in /tmp/packages, inside the scratch root that try_packages.sh makes:
# installed, begun on an empty database, used, upgraded while the service runs, downgraded, removed,
# installed again, purged. package_trial.sh ARCHITECTURE
set -euo pipefail

architecture=$1
native=$(dpkg --print-architecture)
export DEBIAN_FRONTEND=noninteractive PATH=/usr/sbin:/usr/bin:/sbin:/bin
cd /tmp/packages
script=/etc/init.d/veltrancord
names=(veltrancord libveltrancord1 libveltrancord-schema1 libveltrancord-dev veltrancord-tools python3-veltrancord
    veltrancord-doc)
debug=(veltrancord-dbgsym libveltrancord1-dbgsym libveltrancord-schema1-dbgsym veltrancord-tools-dbgsym)

fail() {
    [[ ! -s /tmp/log ]] || cat /tmp/log >&2 # what the last command said
    echo "package_trial: $*" >&2
    exit 1
}
quietly() {
    "$@" >/tmp/log 2>&1 || fail "$*"
}
listing() {
    find /etc /usr /mnt /opt /srv /var/lib -xdev -path /var/lib/dpkg -prune -o -print 2>/dev/null | sort
}
# The service's processes, the supervisor first: it started the other.
service() {
    pgrep -x Veltrancord | sort -n | tr '\n' ' '
}
expect_pair() {
    [[ $(service | wc -w) == 2 ]] || fail "$1: the processes are $(service)"
    $script status || fail "$1: the init script does not know the service"
    veltrancordctl wait --timeout 60 || fail "$1: the service does not answer"
}
expect_none() {
    [[ -z $(service) ]] || fail "$1: the service still runs"
    ! $script status || fail "$1: the init script believes that the service runs"
}
answers() {
    [[ $(veltrancordctl get System.Name) == gate ]] || fail "$1: the setting is gone"
}
# A rule against starting and stopping, as a container or the building of an image has it.
forbid_starts() {
    printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d
    chmod +x /usr/sbin/policy-rc.d
}
# With settings that an earlier installation or somebody's hand has left.
put() {
    [[ ! -e /tmp/defaults ]] || cp -n /tmp/defaults /etc/default/veltrancord
    quietly dpkg -i --force-confold "$@"
}
# The service's package once more as the next version, with a program that is another file.
make_next_version() {
    quietly dpkg-deb -R veltrancord_*_"$architecture".deb next
    sed -i 's/^Version: .*/&+next/' next/DEBIAN/control
    printf 'next' >>next/usr/sbin/Veltrancord
    mkdir -p upgrade
    quietly dpkg-deb --root-owner-group -b next upgrade/veltrancord.deb
}

# Where it was built.
if compgen -G 'veltrancord-bridge_*.deb' >/dev/null; then
    names+=(veltrancord-bridge)
    debug+=(veltrancord-bridge-dbgsym)
fi

prepare() {
    # This machine's own rule against starting services.
    rm -f /usr/sbin/policy-rc.d
    # A device whose init is SysV's says this; elsewhere nothing is started by init scripts.
    rm -f /usr/sbin/runlevel
    printf '#!/bin/sh\necho N 2\n' >/usr/sbin/runlevel
    chmod +x /usr/sbin/runlevel
    [[ ! -e /mnt/database ]] || fail "there is a /mnt/database already"
    # The emulator takes more than the service may have.
    if [[ $architecture != "$native" ]]; then
        mkdir -p /etc/default
        sed 's/^#\(VELTRANCORD_ADDRESS_SPACE\)=.*/\1=unlimited/' <(dpkg-deb --fsys-tarfile \
            veltrancord_*_"$architecture".deb | tar -xO ./etc/default/veltrancord) >/tmp/defaults
    fi
    ldconfig
    systemd-sysusers # writes the accounts once, so that its spare copies of them are there before
    listing >/tmp/before
}

try_install() {
    put ./*.deb
    expect_pair "after the installation"
    [[ -L /etc/systemd/system/multi-user.target.wants/veltrancord.service ]] || fail "the unit is not enabled"
    [[ -e /etc/rc2.d/S01veltrancord ]] || fail "the init script is not enabled"
    for expected in "2750 root:veltrancord /mnt/database/xml" "2750 root:veltrancord /mnt/database/eventlog" \
        "2770 root:veltrancord /var/lib/veltrancord" "770 root:veltrancord /tmp/Veltrancord.unix"; do
        found=$(stat -c '%a %U:%G %n' "${expected##* }")
        [[ $found == "$expected" ]] || fail "$found and not $expected"
    done
    veltrancordctl set --create System.Name=gate 2>/dev/null || fail "an empty database cannot be begun"
    answers "after the installation"
}

try_group() {
    member=(setpriv --reuid daemon --regid daemon --groups veltrancord)
    [[ $("${member[@]}" env HOME=/nonexistent veltrancordctl get System.Name) == gate ]] ||
        fail "a member of the group gets no answer"
    "${member[@]}" veltrancordctl fsck /mnt/database/xml >/dev/null || fail "a member of the group cannot look"
    "${member[@]}" touch /var/lib/veltrancord/try || fail "a member of the group cannot keep state"
    ! setpriv --reuid daemon --regid daemon --clear-groups veltrancordctl get System.Name 2>/dev/null ||
        fail "somebody else gets an answer"
}

try_libraries() {
    [[ $(/usr/bin/python3 -c 'import veltrancord; print(veltrancord.Client().get("System.Name"))') == \
        gate ]] || fail "the Python module gets no answer"
    mkdir /tmp/wheel
    quietly /usr/bin/python3 -m pip install --quiet --no-index --no-deps --target /tmp/wheel ./*.whl
    [[ $(PYTHONPATH=/tmp/wheel /usr/bin/python3 -c 'import veltrancord as v; print(v.__file__, v.Client().get("System.Name"))') == \
        "/tmp/wheel/veltrancord/__init__.py gate" ]] || fail "the wheel's module gets no answer"
    triplet=$(dpkg-architecture -a "$architecture" -q DEB_HOST_MULTIARCH 2>/dev/null)
    export PKG_CONFIG_LIBDIR=/usr/lib/$triplet/pkgconfig
    # shellcheck disable=SC2046
    "$triplet-gcc" try_library.c -o /tmp/try $(pkg-config --cflags --libs veltrancord)
    [[ $(/tmp/try) == gate ]] || fail "pkg-config"
    mkdir -p /tmp/try-cmake && cp try_library.c /tmp/try-cmake/
    cat >/tmp/try-cmake/CMakeLists.txt <<'SOURCE'
cmake_minimum_required(VERSION 3.23)
project(try C)
find_package(Veltrancord 1 REQUIRED)
add_executable(try try_library.c)
target_link_libraries(try Veltrancord::veltrancord)
SOURCE
    quietly cmake -S /tmp/try-cmake -B /tmp/try-cmake/build -DCMAKE_C_COMPILER="$triplet-gcc" \
        -DCMAKE_LIBRARY_ARCHITECTURE="$triplet"
    quietly cmake --build /tmp/try-cmake/build
    [[ $(/tmp/try-cmake/build/try) == gate ]] || fail "CMake package"
}

try_texts() {
    quietly systemd-analyze verify --man=no /lib/systemd/system/veltrancord.service
    for page in 1/veltrancordctl.1 3/libveltrancord.3 3/veltrancord_watch.3 5/veltrancord.5 \
        5/veltrancord-access.5 7/veltrancord.7 8/Veltrancord.8; do
        [[ -f /usr/share/man/man$page.gz ]] || fail "no manual page $page"
    done
    # The table for BusyBox names the script that is there, and shells know the tool's words.
    examples=/usr/share/doc/veltrancord/examples
    while read -r line _; do
        [[ -x $line ]] || fail "$examples/inittab names $line"
    done < <(grep -v '^#' $examples/inittab | cut -d: -f4)
    quietly bash -n /usr/share/bash-completion/completions/veltrancordctl
    quietly zsh -n /usr/share/zsh/vendor-completions/_veltrancordctl
    quietly fish -n /usr/share/fish/vendor_completions.d/veltrancordctl.fish
    # The sample database is whole, and the sample programs can be built.
    quietly veltrancordctl fsck $examples/database
    quietly veltrancordctl access check $examples/access
    [[ ! -e /etc/veltrancord/access ]] || fail "an access file that nobody has asked for"
    # shellcheck disable=SC2046
    quietly "$triplet-gcc" $examples/programs/{setting_cgi,cgi_input}.c -o /tmp/setting.cgi \
        $(pkg-config --cflags --libs veltrancord)
    [[ -f /usr/share/doc/veltrancord/docs/operations.md ]] || fail "no documents"
    for package in "${debug[@]}"; do
        quietly dpkg -L "$package"
        grep -q '\.debug$' /tmp/log || fail "no debug symbols in $package"
    done
}

# It is there, and waits for a configuration.
try_bridge() {
    [[ " ${names[*]} " == *" veltrancord-bridge "* ]] || return 0
    quietly systemd-analyze verify --man=no /lib/systemd/system/veltrancord-bridge.service
    [[ -f /usr/share/man/man8/veltrancord-bridge.8.gz ]] || fail "no manual page of the bridge"
    [[ ! -e /etc/systemd/system/multi-user.target.wants/veltrancord-bridge.service ]] ||
        fail "the bridge is enabled without a configuration"
    ! pgrep -x veltrancord-bri || fail "the bridge was started without a configuration"
    sh -e "$examples/fleet/make_certificates.sh" /tmp/fleet 127.0.0.1 yard-1 2>/dev/null || fail "no certificates"
    for name in ca.pem yard-1.pem yard-1.key signing.pem; do
        cp "/tmp/fleet/$name" "/etc/veltrancord-bridge/$name"
    done
    sed -e 's/device\.\(pem\|key\)/yard-1.\1/' -e 's/^#operator-key=.*/operator-key=\/etc\/veltrancord-bridge\/signing.pem/' \
        "$examples/fleet/bridge.conf" >/etc/veltrancord-bridge/bridge.conf
    [[ $(veltrancord-bridge --check) == "yard-1: reports, and takes no changes" ]] || fail "the bridge takes changes"
    rm -r /etc/veltrancord-bridge/*
}

# A file system of its own, as the example of the unit makes it, has room for the log.
try_log_file_system() {
    unit=$examples/mnt-database-eventlog.mount
    cp "$unit" /etc/systemd/system/
    quietly systemd-analyze verify --man=no /etc/systemd/system/mnt-database-eventlog.mount
    rm /etc/systemd/system/mnt-database-eventlog.mount
    sed -n 's/^#     \(truncate\|mkfs\)/\1/p' "$unit" | sed 's|/var/lib|/tmp|' >/tmp/make-image
    quietly sh -e /tmp/make-image
    blocks=$(dumpe2fs -h /tmp/veltrancord-eventlog.img 2>/dev/null | sed -n 's/^Free blocks: *//p')
    size=$(dumpe2fs -h /tmp/veltrancord-eventlog.img 2>/dev/null | sed -n 's/^Block size: *//p')
    ((blocks * size >= 387072)) || fail "the image of the log has no room for 1,000 entries"
}

# A log on a file system that looks too small, and one that does not, each when it is first installed.
try_warning() {
    mkdir -p /mnt/database/eventlog
    for size in 64k 1M; do
        mount -t tmpfs -o "size=$size" tmpfs /mnt/database/eventlog
        put veltrancord_*_"$architecture".deb
        if [[ $size == 64k ]]; then
            grep -q 'the event log has no room' /tmp/log || fail "a log without room was not told"
            put veltrancord_*_"$architecture".deb
        fi
        ! grep -q 'the event log has no room' /tmp/log || fail "told again, or of a log with room ($size)"
        quietly dpkg --purge veltrancord
        umount /mnt/database/eventlog
    done
    rmdir /mnt/database/eventlog /mnt/database 2>/dev/null || true
}

try_restart() {
    before=$(service)
    quietly $script restart
    expect_pair "after a restart"
    [[ $(service) != "$before" ]] || fail "a restart starts nothing anew"
    sed -i 's|^VELTRANCORD_OPTIONS=.*|VELTRANCORD_OPTIONS="-t 600 -E /run/veltrancord.log"|' /etc/default/veltrancord
    quietly $script restart
    expect_pair "with options"
    [[ -e /run/veltrancord.log ]] || fail "the options of /etc/default/veltrancord have no effect"
}

try_upgrade() {
    make_next_version
    before=$(service)
    put upgrade/veltrancord.deb
    expect_pair "after the upgrade"
    [[ $(service) != "$before" ]] || fail "an upgrade starts nothing anew"
    answers "after the upgrade"
    grep -q -- '-E /run/veltrancord.log' /etc/default/veltrancord || fail "an upgrade loses the options"
    before=$(service)
    put veltrancord_*_"$architecture".deb
    expect_pair "after the downgrade"
    [[ $(service) != "$before" ]] || fail "a downgrade starts nothing anew"
    answers "after the downgrade"
    # Where nothing may be started the old program goes on, and the script knows it all the same.
    forbid_starts
    before=$(service)
    put upgrade/veltrancord.deb
    [[ $(service) == "$before" ]] || fail "an upgrade starts what may not be started"
    rm /usr/sbin/policy-rc.d
    expect_pair "the old program after the upgrade"
    quietly $script restart
    expect_pair "the new program"
    [[ $(service) != "$before" ]] || fail "a restart after the upgrade starts nothing anew"
    # Started again without anybody's doing.
    kill -KILL "$(service | cut -d' ' -f2)"
    veltrancordctl wait --timeout 60 || fail "no new worker"
}

try_remove() {
    quietly dpkg --purge "${debug[@]}" # they need the service's package
    quietly dpkg -r veltrancord
    [[ -z $(service) ]] || fail "a removal leaves the service running"
    [[ -e /mnt/database/xml/System ]] || fail "a removal takes the settings"
    forbid_starts
    put veltrancord_*_"$architecture".deb
    expect_none "installed where nothing may be started"
    rm /usr/sbin/policy-rc.d
    quietly $script start
    expect_pair "started by hand"
    answers "after it was installed again"
}

try_purge() {
    quietly dpkg --purge veltrancord
    [[ -z $(service) ]] || fail "a purge leaves the service running"
    [[ -e /mnt/database/xml/System ]] || fail "a purge takes the settings"
    [[ $(stat -c %G /mnt/database/xml) == veltrancord ]] || fail "a purge takes the group of the settings"
    put veltrancord_*_"$architecture".deb
    expect_pair "installed after a purge"
    answers "after a purge"
    adduser --quiet www-data veltrancord
    rm -f /mnt/database/xml/System /mnt/database/eventlog/log
    quietly dpkg --purge "${names[@]}"
    ! getent passwd veltrancord || fail "the user is left"
    ! getent group veltrancord || fail "the group is left"
    ldconfig
    listing >/tmp/after
    diff /tmp/before /tmp/after >/tmp/left || { cat /tmp/left >&2; fail "something is left"; }
}

prepare
try_install
try_group
try_libraries
try_texts
try_bridge
try_log_file_system
try_restart
try_upgrade
try_remove
try_purge
try_warning
echo "installed, used, upgraded, downgraded, removed, purged ($architecture)"
