#!/usr/bin/env bash
# What the packages of a folder must show: scripts/check-packages.sh [FOLDER], else out/packages.
# lintian, desktop-file-validate and appstreamcli have no error and no warning; no file outside the usual places, none that
# runs as another user, no folder of the machine that built it; the bill of materials is what SPDX 2.3 asks for.
set -euo pipefail
cd "$(dirname "$0")/.."
folder=${1:-out/packages}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bad=0
complain() {
  echo "check-packages: $1" >&2
  bad=1
}

# unknown_licences BILL: the identifiers of its expressions that appstreamcli does not know as the project's licence.
unknown_licences() {
  local component=$work/org.example.licences.metainfo.xml
  printf '<component><id>org.example.licences</id><project_license>%s</project_license></component>\n' "$(
    jq -r '[.packages[] | .licenseDeclared, .licenseConcluded | select(. != null)] | unique | join(" AND ")' "$1"
  )" >"$component"
  appstreamcli validate --no-net "$component" 2>&1 | grep spdx-license || true
}

(cd "$folder" && sha256sum --quiet -c SHA256SUMS) || complain "SHA256SUMS is of other files"
count=0
for package in "$folder"/*.deb; do
  count=$((count + 1))
  name=${package##*/}
  tree=$work/${name%%_*}
  dpkg-deb -x "$package" "$tree"
  said=$(lintian --allow-root --fail-on none "$package" 2>&1 | grep -vE '^(N:|running with root)' || true)
  [ -z "$said" ] || complain "lintian: $said"
  for entry in "$tree"/usr/share/applications/*.desktop; do
    said=$(desktop-file-validate "$entry" 2>&1 || true)
    [ -z "$said" ] || complain "$said"
  done
  said=$(appstreamcli validate-tree --no-net --pedantic "$tree" 2>&1 || true)
  if ! grep -q 'Validation was successful' <<<"$said" || grep -qE '^ *[EWIP]: ' <<<"$said"; then complain "appstreamcli: $said"; fi
  said=$(find "$tree" ! -type d -printf '%P\n' | grep -vE \
    '^usr/(bin/brickfall|lib/brickfall(-sandbox)?/|share/(applications|bash-completion/completions|doc/brickfall|icons/hicolor|man/man1|metainfo)/?)' || true)
  [ -z "$said" ] || complain "$name has files in unusual places: $said"
  said=$(dpkg-deb -c "$package" | awk '$1 ~ /[sS]/ || $2 != "root/root"')
  [ -z "$said" ] || complain "$name has files with rights or owners of their own: $said"
  if grep -rlaF -e "$PWD" -e "$HOME/" "$tree" >"$work/named"; then complain "$name names a folder of this machine: $(cat "$work/named")"; fi
  bill=$tree/usr/share/doc/${name%%_*}/${name%%_*}.spdx.json
  said=$(jq -r -f scripts/spdx.jq "$bill" 2>&1 || true)
  [ -z "$said" ] || complain "the bill of materials of $name: $said"
  said=$(unknown_licences "$bill")
  [ -z "$said" ] || complain "the bill of materials of $name has what is not on the list of SPDX: $said"
  for part in control preinst postinst prerm postrm; do
    dpkg-deb --info "$package" "$part" >"$work/part" 2>/dev/null || continue
    [ "$part" = control ] || complain "$name runs a program of its own when it is installed: $part"
  done
done
[ "$count" -gt 0 ] || complain "no package in $folder"
[ "$bad" -eq 0 ] && echo "check-packages: $count packages, and nothing to complain of"
exit "$bad"
