# Sourced by ./run and scripts/ppc-deps.sh: system changes (Debian
# packages, apt sources) made as root, through sudo for a normal user.

# Succeeds when commands can run as root; otherwise prints why not, naming
# what was to be done ($*), and fails.
can_act_as_root() {
    [ "$(id -u)" = 0 ] && return 0
    if command -v sudo >/dev/null 2>&1; then
        echo "running as $(id -un): sudo will be asked to $*" >&2
        return 0
    fi
    echo "cannot $*: not root, and sudo is not installed; ask an administrator to do it" >&2
    return 1
}

# Runs a command as root.
as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}
