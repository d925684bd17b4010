# What puts the privileged tool in place, and looks whether it is there as it must be. POSIX shell, for Linux and macOS;
# read by packaging/install-tool and built into the Debian package's scripts.

zekara_fail() {
  echo "Zekara4MacTool: $*" >&2
  exit 1
}

# The first ten characters of a file's mode, its owner and its group: "-rwsr-xr-x 0 0". Where $1 is a link, of its target.
zekara_attributes() {
  LC_ALL=C ls -lLdn "$1" | awk 'NR == 1 { print substr($1, 1, 10), $3, $4 }'
}

# Whether set-user-id bits are ignored where $1 is.
zekara_is_nosuid() {
  zekara_mount_point=$(LC_ALL=C df -P "$1" 2>/dev/null | sed -n '2s/.*[0-9-]% *//p')
  [ -n "$zekara_mount_point" ] || return 1
  # "DEVICE on POINT type TYPE (OPTIONS)" on Linux, "DEVICE on POINT (OPTIONS)" on macOS; the last mount is the one on top.
  zekara_options=$(LC_ALL=C mount | grep -F -e " on $zekara_mount_point type " -e " on $zekara_mount_point (" |
    tail -n 1 | sed 's/.*(//; s/)$//')
  case ",$(echo "$zekara_options" | tr -d ' ')," in
    *,nosuid,*) return 0 ;;
  esac
  return 1
}

# Ends the program unless only root can put something else in the place of what is in directory $1.
zekara_require_safe_directory() {
  zekara_found=$(zekara_attributes "$1")
  case "$zekara_found" in
    d????????t" 0 "*) ;;                 # only owners remove and rename there, and the owner is root
    d????w????" "* | d???????w?" "*) zekara_fail "$1 can be written by others than root ($zekara_found): the tool would not be safe there" ;;
    d?????????" 0 "*) ;;
    *) zekara_fail "$1 is no directory of root's ($zekara_found): the tool would not be safe there" ;;
  esac
}

# Makes directory $2 below $1 (nothing, or the root of a staged installation), and those above it, with mode 0755; those of
# a real installation must be safe, also where they have been there before.
zekara_make_directory() {
  zekara_parent=$(dirname "$2")
  [ "$zekara_parent" = / ] || zekara_make_directory "$1" "$zekara_parent"
  if [ ! -d "$1$2" ]; then
    mkdir -m 0755 "$1$2" || zekara_fail "cannot make $1$2"
    [ "$(id -u)" -ne 0 ] || chown 0:0 "$1$2"
  fi
  [ -n "$1" ] || zekara_require_safe_directory "$2"
}

# Ends the program unless file $1 is root's with mode 04755, and means something where it is.
zekara_require_installed_tool() {
  zekara_found=$(zekara_attributes "$1")
  [ "$zekara_found" = "-rwsr-xr-x 0 0" ] ||
    zekara_fail "$1 has \"$zekara_found\", not owner 0, group 0 and mode 04755: it cannot work"
  if zekara_is_nosuid "$1"; then
    zekara_fail "$1 is on a file system that is mounted nosuid: it cannot work there"
  fi
}
