# Functions of the installers: where the privileged tool may be placed, how it is replaced and how it is withdrawn.
#
# POSIX shell for Linux and macOS. packaging/install-tool, packaging/uninstall and packaging/macos/install read this file; the
# Debian package's scripts contain a copy of it. Reads attributes with ls: Linux and macOS share no other program for that.

zekara_suite_directory="/Library/Application Support/Zekara"
zekara_configuration=$zekara_suite_directory/zekara32.ini
zekara_list=$zekara_suite_directory/installed-files
zekara_system=$(uname -s)

# Prints the arguments on standard error and ends the program with status 1.
zekara_fail() {
  echo "Zekara4MacTool: $*" >&2
  exit 1
}

# Prints the first ten characters of the mode of file $1, its owner and its group, for example "-rwsr-xr-x 0 0". Does not follow
# a link.
zekara_attributes() {
  # shellcheck disable=SC2012
  LC_ALL=C ls -ldn "$1" | awk 'NR == 1 { print substr($1, 1, 10), $3, $4 }'
}

# Prints the inode number of file $1. Does not follow a link.
zekara_inode() {
  # shellcheck disable=SC2012
  LC_ALL=C ls -di "$1" | awk 'NR == 1 { print $1 }'
}

# Returns true if path $1 is a regular file and not a link to one.
zekara_is_regular_file() {
  [ -f "$1" ] && [ ! -L "$1" ]
}

# Returns true if the file system that holds $1 is mounted nosuid.
zekara_is_nosuid() {
  zekara_mount_point=$(LC_ALL=C df -P "$1" 2>/dev/null | sed -n '2s/.*[0-9-]% *//p')
  [ -n "$zekara_mount_point" ] || return 1
  # mount prints "DEVICE on POINT type TYPE (OPTIONS)" on Linux and "DEVICE on POINT (OPTIONS)" on macOS. Of several mounts at one
  # point, the last covers the others.
  zekara_options=$(LC_ALL=C mount 2>/dev/null | grep -F -e " on $zekara_mount_point type " -e " on $zekara_mount_point (" |
    tail -n 1 | sed 's/.*(//; s/)$//')
  case ",$(echo "$zekara_options" | tr -d ' ')," in
    *,nosuid,*) return 0 ;;
  esac
  return 1
}

# On macOS, ends the program if an access control list lets an account change directory $1: its mode does not show that.
zekara_require_harmless_acl() {
  [ "$zekara_system" = Darwin ] || return 0
  # shellcheck disable=SC2012
  zekara_found=$(LC_ALL=C ls -lde "$1" | sed 1d |
    grep -E ' allow (.*,)?(write|append|add_file|add_subdirectory|delete|delete_child|chown|writesecurity)(,|$)' || true)
  [ -z "$zekara_found" ] ||
    zekara_fail "the access control list of $1 lets other accounts change it ($zekara_found): the tool would not be safe there"
}

# Ends the program unless only root can change directory $1. If $2 is "parent", the directory may be writable by others when it
# is sticky: only the owner of a file can replace it there.
zekara_require_roots_directory() {
  zekara_found=$(zekara_attributes "$1")
  case "$zekara_found" in
    d?????????" 0 "*) ;;
    *) zekara_fail "$1 is not a directory that root owns ($zekara_found): the tool would not be safe there" ;;
  esac
  zekara_require_harmless_acl "$1"
  case "$2$zekara_found" in
    parentd????????[tT]*) ;;
    *d????w????" 0 "* | *d???????w?" 0 "*)
      zekara_fail "$1 can be written by others than root ($zekara_found): the tool would not be safe there" ;;
  esac
}

# Takes one step of zekara_require_safe_directory: from $zekara_at to the entry $zekara_name.
zekara_step() {
  case "$zekara_name" in
    "" | .) return ;;
    ..) zekara_at=$(dirname "$zekara_at"); return ;;
  esac
  zekara_next=${zekara_at%/}/$zekara_name
  if [ -L "$zekara_next" ]; then
    zekara_links=$((zekara_links + 1))
    [ "$zekara_links" -le 32 ] || zekara_fail "$1 leads through more than 32 symbolic links"
    case "$(zekara_attributes "$zekara_next")" in
      l?????????" 0 "*) ;;
      *) zekara_fail "$zekara_next is a link that root does not own: the tool would not be safe there" ;;
    esac
    zekara_target=$(readlink "$zekara_next")
    case "$zekara_target" in /*) zekara_at=/ ;; esac
    zekara_rest=$zekara_target/$zekara_rest
  elif [ -e "$zekara_next" ]; then
    zekara_at=$zekara_next
    zekara_require_roots_directory "$zekara_at" parent
  else
    zekara_is_missing=yes
  fi
}

# Ends the program unless root alone decides what is found in directory $1, an absolute path. Examines every directory on the
# way from the root directory, and follows links one by one, because the owner of any of them could put another directory in its
# place. If the directory does not exist, examines those above it. Leaves the path of the last directory in $zekara_at.
zekara_require_safe_directory() {
  zekara_at=/
  zekara_rest=$1
  zekara_links=0
  zekara_is_missing=
  zekara_require_roots_directory / parent
  while [ -n "$zekara_rest" ] && [ -z "$zekara_is_missing" ]; do
    zekara_name=${zekara_rest%%/*}
    case "$zekara_rest" in
      */*) zekara_rest=${zekara_rest#*/} ;;
      *) zekara_rest= ;;
    esac
    zekara_step "$1"
  done
  if [ -z "$zekara_is_missing" ]; then zekara_require_roots_directory "$zekara_at" leaf; fi
}

# Ends the program unless the tool can be installed in directory $1. Makes nothing.
zekara_require_safe_place() {
  for zekara_directory in "$1" "$zekara_suite_directory" /var/zekara/run /var/zekara/log; do
    zekara_require_safe_directory "$zekara_directory"
  done
  zekara_require_safe_directory "$1"
  if zekara_is_nosuid "$zekara_at"; then
    zekara_fail "$zekara_at is on a file system that is mounted nosuid: the tool cannot work there"
  fi
  zekara_require_free_name "$1/Zekara4MacTool"
}

# Ends the program if $1 is a directory, or a link to one: a file that is moved there would end up inside it.
zekara_require_free_name() {
  if [ -d "$1" ]; then zekara_fail "$1 is a directory: the tool cannot take its place"; fi
}

# Gives new file or directory $1 to root with mode $2. The owner comes first, because a change of owner clears the set-user-id
# bit. On macOS, first removes the access control entries that it inherited: they survive both changes.
zekara_give_to_root() {
  if [ "$zekara_system" = Darwin ]; then chmod -N "$1"; fi
  chown 0:0 "$1"
  chmod "$2" "$1"
}

# Makes directory $2 below $1 (empty, or the root of a staged installation) with mode 0755, and those above it.
zekara_make_directory() {
  if [ -d "$1$2" ]; then return; fi
  zekara_make_directory "$1" "$(dirname "$2")"
  mkdir -m 0755 "$1$2" || zekara_fail "cannot make $1$2"
  if [ "$(id -u)" -eq 0 ]; then zekara_give_to_root "$1$2" 0755; fi
}

# Copies file $1 to the new file $2, which only the caller can read or write yet. Fails if $2 exists, even as a dangling link.
zekara_copy_to_new_file() {
  (umask 077 && set -C && cat "$1" >"$2")
}

# Removes file $1 and takes all rights from it, so that a process that has a set-user-id file open cannot start it later. The rights
# go first, because some file systems cannot change a file that has no name. They go once more at the end, because an instance that
# was repairing the file meanwhile may have restored them; from then on it takes them away itself.
zekara_withdraw() {
  if zekara_is_regular_file "$1"; then
    chmod 0600 "$1"
    exec 9<"$1"
    rm -f "$1"
    chmod 0600 /dev/fd/9 2>/dev/null || true
    exec 9<&-
  fi
  rm -f "$1"
}

# Removes what an interrupted installation of tool $1 has left beside it. The second name may still be that of the tool itself.
zekara_clear_leftovers() {
  if zekara_is_regular_file "$1.old" && [ -e "$1" ] && [ "$(zekara_inode "$1.old")" = "$(zekara_inode "$1")" ]; then
    rm -f "$1.old"
  fi
  zekara_withdraw "$1.old"
  zekara_withdraw "$1.new"
}

# Moves file $1.new to the name $1 in one step, so that the name always has a working tool, and then withdraws the file that had
# the name before.
zekara_replace() {
  if zekara_is_regular_file "$1"; then ln "$1" "$1.old"; fi
  mv -f "$1.new" "$1"
  zekara_withdraw "$1.old"
}

# Ends the program unless file $1 belongs to root with mode 04755, on a file system that honours the set-user-id bit.
zekara_require_installed_tool() {
  zekara_found=$(zekara_attributes "$1")
  [ "$zekara_found" = "-rwsr-xr-x 0 0" ] ||
    zekara_fail "$1 has \"$zekara_found\", not owner 0, group 0 and mode 04755: it cannot work"
  if zekara_is_nosuid "$1"; then
    zekara_fail "$1 is on a file system that is mounted nosuid: it cannot work there"
  fi
}

# Makes the configuration file, empty, if there is none. The tool would make it at the first change, but with the mode that the
# umask of its caller leaves.
zekara_make_configuration() {
  if [ -e "$zekara_configuration" ] || [ -L "$zekara_configuration" ]; then return; fi
  (umask 077 && set -C && : >"$zekara_configuration")
  zekara_give_to_root "$zekara_configuration" 0444
}

# Adds the paths on standard input, one a line, to the list of installed files, which packaging/uninstall reads.
zekara_record() {
  zekara_require_safe_directory "$zekara_suite_directory"
  rm -f "$zekara_list.new"
  {
    if zekara_is_regular_file "$zekara_list"; then cat "$zekara_list"; fi
    cat
  } | LC_ALL=C sort -u | zekara_copy_to_new_file - "$zekara_list.new"
  zekara_give_to_root "$zekara_list.new" 0644
  mv -f "$zekara_list.new" "$zekara_list"
}
