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

# log_in ACCOUNT ID: makes the account; it is as if it were logged in.
log_in() {
    useradd --uid "$2" --create-home --shell /bin/bash "$1" 2>/dev/null
    loginctl enable-linger "$1"
    eventually systemctl --quiet is-active "user@$2.service"
}

# Images for containers forbid packages to start services and to install documents; here they may.
rm -f /usr/sbin/policy-rc.d /etc/dpkg/dpkg.cfg.d/{docker,excludes}
# The index of man pages takes seconds, and nobody looks anything up in it here.
rm -f /var/lib/man-db/auto-update
