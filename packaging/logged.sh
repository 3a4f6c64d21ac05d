# Sourced. Runs a command and shows the end of what it wrote only if it fails: logged LOG COMMAND...
logged() {
  "${@:2}" >"$1" 2>&1 || {
    tail -n 50 "$1"
    return 1
  }
}
