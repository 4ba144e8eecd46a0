#!/bin/bash
# Makes a release of what is checked out: looks whether all is ready, passes the tests, writes the source archive with its
# checksum into build/, and tags. With --dry-run it only looks, and says what it would do. Nothing is pushed.
#
# Usage: packaging/release.sh VERSION [--dry-run]
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  echo "usage: packaging/release.sh VERSION [--dry-run], where VERSION is three numbers with dots" >&2
  exit 2
}

[[ ${1-} =~ ^[0-9]+\.[0-9]+\.[0-9]+$ && $# -le 2 ]] || usage
version=$1
case "${2-}" in
  '') dry_run=false ;;
  --dry-run) dry_run=true ;;
  *) usage ;;
esac
tag=v$version
archive=libvesk-$version.tar.gz

problems=0
problem() {
  echo "not ready: $*" >&2
  problems=$((problems + 1))
}

# The first line of a file that has the form, reduced to what the form has in parentheses.
told() { sed -nE "/$2/{s//\1/p;q}" "$1"; }

# FILE FORM EXPECTED
expect() {
  local found
  found=$(told "$1" "$2")
  [[ $found == "$3" ]] || problem "$1 says '$found' and should say '$3'"
}

branch=$(git symbolic-ref --quiet --short HEAD || echo 'no branch')
[[ $branch == main ]] || problem "releases are made of main, and this is $branch"
[[ -z $(git status --porcelain) ]] || problem "there are changes that are not committed"
! git rev-parse --quiet --verify "refs/tags/$tag" > /dev/null || problem "the tag $tag exists already"
expect CMakeLists.txt '^project\(vesk VERSION ([0-9.]+) .*' "$version"
expect python/pyproject.toml '^version = "(.*)"$' "$version"
[[ ! -e debian/changelog ]] || expect debian/changelog '^libvesk \(([0-9.]+)(-[^)]*)?\) .*' "$version"
section=$(told CHANGELOG.md '^## (.*)$')
[[ $section =~ ^$version\ \([0-9]{4}-[0-9]{2}-[0-9]{2}\)$ ]] ||
  problem "CHANGELOG.md begins with '$section' and should begin with '$version (YEAR-MONTH-DAY)'"
((problems == 0)) || exit 1

if git config --get user.signingkey > /dev/null; then kind=sign; else kind=annotate; fi
if $dry_run; then
  echo "ready: would pass the tests, write build/$archive and its checksum, and make the tag $tag (git tag --$kind)"
  exit 0
fi

make test
mkdir -p build
git archive --prefix="libvesk-$version/" HEAD | gzip --no-name --best > "build/$archive"
(cd build && sha256sum "$archive" | tee "$archive.sha256")
git tag "--$kind" --message="libvesk $version" "$tag"
echo "to publish: git push origin $tag"
