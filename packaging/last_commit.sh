#!/usr/bin/env bash
# Fails, and says why, unless the working tree equals the last commit.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C

refuse() {
  echo "package: the last commit is packaged, and $1"
  exit 1
}

command -v git >/dev/null || refuse "git is not installed"
status=0
answer=$(git rev-parse --show-prefix 2>&1) || status=$?
case $answer in
  *"dubious ownership"*)
    refuse "git refuses a repository of another owner; to trust it: git config --global --add safe.directory '$PWD'"
    ;;
  *"not a git repository"*) refuse "this folder is no git repository" ;;
esac
[[ $status -eq 0 ]] || refuse "git fails: $answer"
[[ -z $answer ]] || refuse "this folder is no git repository of its own but a part of one"
git rev-parse --quiet --verify HEAD >/dev/null || refuse "there is none"
git diff --quiet HEAD || refuse "there are changes to it"
untracked=$(git ls-files --others --exclude-standard)
[[ -z $untracked ]] || refuse "there are files that it does not have:"$'\n'"$untracked"
