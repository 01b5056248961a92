# shellcheck shell=bash
# What the scripts have in common that run in a throw-away machine.

# eventually COMMAND...: true as soon as the command is, false when it is not within a minute.
eventually() {
    local deadline=$((SECONDS + 60))
    until "$@" 2>/dev/null; do
        ((SECONDS < deadline)) || return 1
        sleep 0.1
    done
}

# log_in ACCOUNT ID [HOME]: makes the account; it is as if it were logged in. Its home is only made if it can be.
log_in() {
    local home=${3:-/home/$1} create=--create-home
    [[ -d ${home%/*} ]] || create=--no-create-home
    useradd --uid "$2" --home-dir "$home" "$create" --shell /bin/bash "$1" 2>/dev/null
    loginctl enable-linger "$1"
    eventually systemctl --quiet is-active "user@$2.service"
}

say() { printf '   %s\n' "$1"; }

# expect WHAT COMMAND...: says it when it is so, calls fail, which is the script's own, when not.
expect() {
    local what=$1
    shift
    "$@" || fail "$what"
    say "$what"
}

refuses() { ! "$@" 2>/dev/null; }
is() { [[ $1 == "$2" ]]; }

service=orvane-policy-daemon.service

# Of an account: its service manager, one property of the daemon's service, the daemon's messages.
of() { systemctl --user --machine "$1@" "${@:2}"; }
property() { of "$1" show --value --property "$2" "$service"; }
has_logged() {
    journalctl --quiet --output cat -t OrvanePolicyDaemon _UID="$(id -u "$1")" | grep -F "$2" >/dev/null
}
# Its service counts as active before it is known whether the program can be run; so the program has to say so.
runs() {
    [[ $(property "$1" ActiveState) == active ]] && has_logged "$1" "starting (pid=$(property "$1" MainPID))"
}

# Images for containers forbid packages to start services and to install documents; here they may.
rm -f /usr/sbin/policy-rc.d /etc/dpkg/dpkg.cfg.d/{docker,excludes}
# The index of man pages takes seconds, and nobody looks anything up in it here.
rm -f /var/lib/man-db/auto-update
