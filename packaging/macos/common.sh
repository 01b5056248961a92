# What packaging/macos/install and remove share. The paths are those in the property lists.
# shellcheck shell=bash disable=SC2034  # used by those two

program_name=OrvanePolicyDaemon
installed_program=/usr/local/libexec/orvane/$program_name
installed_rule=/usr/local/share/orvane/newsyslog.conf
labels=(dev.orvane.policy-daemon dev.orvane.policy-daemon.rotation)

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$1" >&2
    exit 1
}

# plist_of LABEL: where its property list is installed.
plist_of() {
    printf '/Library/LaunchAgents/%s.plist' "$1"
}

# take_root ARGUMENT...: sets `root` from --root and `rest` to the other arguments. Without --root this
# has to be a Mac, and root.
take_root() {
    root='' rest=()
    while (($#)); do
        if [[ $1 == --root ]]; then
            [[ -n ${2-} ]] || fail '--root takes a directory'
            root=${2%/}
            shift
        else
            rest+=("$1")
        fi
        shift
    done
    [[ -n $root ]] && return
    [[ $(uname -s) == Darwin ]] || fail 'this is for macOS; elsewhere there is only --root DIRECTORY'
    [[ $(id -u) == 0 ]] || fail 'this takes root: sudo'
}

# end_job USER LABEL: returns when launchd has let go of it.
end_job() {
    local i
    launchctl bootout "gui/$1/$2" 2>/dev/null || return 0
    for ((i = 0; i < 100; i++)); do
        launchctl print "gui/$1/$2" >/dev/null 2>&1 || return 0
        sleep 0.1
    done
    fail "launchd does not let go of $2"
}

# start_job USER LABEL
start_job() {
    launchctl bootstrap "gui/$1" "$(plist_of "$2")"
}
