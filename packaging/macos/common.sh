# What packaging/macos/install, remove and postinstall share. The paths are those in the property lists.
# shellcheck shell=bash disable=SC2034  # used by those three

program_name=OrvanePolicyDaemon
status_name=orvane-policy-status
# Root's, and nothing that Homebrew would put into the hands of one account.
place='/Library/Application Support/Orvane'
installed_program=$place/$program_name
# Once for the machine, and once for each account that is logged in at the screen.
daemons=(dev.orvane.policy-daemon.directory)
agents=(dev.orvane.policy-daemon dev.orvane.policy-daemon.rotation)

warn() {
    printf '%s: %s\n' "$(basename "$0")" "$1" >&2
}

fail() {
    warn "$1"
    exit 1
}

# plist_of LABEL: where its property list is installed.
plist_of() {
    case " ${daemons[*]} " in
        *" $1 "*) printf '/Library/LaunchDaemons/%s.plist' "$1" ;;
        *) printf '/Library/LaunchAgents/%s.plist' "$1" ;;
    esac
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

# sessions: the accounts that are logged in at the screen, those that are switched away from too: each has
# a loginwindow of its own. Below 501 are the system's: root's at the login screen, the Setup Assistant's.
sessions() {
    ps -axww -o uid= -o comm= | awk '/\/loginwindow$/ && $1 > 500 { print $1 }' | sort -u
}

# end_job DOMAIN LABEL: returns when launchd no longer knows the job. bootout may return before that, and
# what it returns (3, 36, 113) does not tell whether the job is there.
end_job() {
    local half
    for ((half = 0; half < 60; half++)); do
        launchctl print "$1/$2" >/dev/null 2>&1 || return 0
        ((half % 10 != 0)) || launchctl bootout "$1/$2" 2>/dev/null || true
        sleep 0.5
    done
    fail "launchd does not let go of $2 in $1"
}

# start_job DOMAIN LABEL: for some seconds after a job has ended, launchd may refuse it with 5, "Input/output
# error", or 37. A job that was switched off it refuses until it is enabled.
start_job() {
    local second message
    launchctl enable "$1/$2"
    for ((second = 0; second < 15; second++)); do
        message=$(launchctl bootstrap "$1" "$(plist_of "$2")" 2>&1) && return
        # A login in the meantime has started it.
        launchctl print "$1/$2" >/dev/null 2>&1 && return
        sleep 1
    done
    warn "$2 does not start in $1 now: $message"
    [[ $1 == system ]] || warn 'it starts when that account logs in the next time'
}

# start_everywhere: has launchd take what is installed now, in place of what it knows.
start_everywhere() {
    local label user
    # At once, so that no agent comes first.
    "$place/prepare-setup-directory"
    for label in "${daemons[@]}"; do
        end_job system "$label"
        start_job system "$label"
    done
    for user in $(sessions); do
        for label in "${agents[@]}"; do
            end_job "gui/$user" "$label"
            start_job "gui/$user" "$label"
        done
    done
}
