#!/usr/bin/env bash
# Writes what a package is made of into a folder of it: an SPDX bill of materials (PACKAGE.spdx.json) and the copyright file.
# The parts are the Debian packages of the libraries that the programs name, with the versions that they were linked with,
# and the licences of their copyright files. Called by scripts/package.sh:
#   scripts/bill-of-materials.sh PACKAGE VERSION COMMIT HOMEPAGE FOLDER PROGRAM...
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=packaging/programs.sh
. ./packaging/programs.sh
: "${compiled_in:?}" "${SOURCE_DATE_EPOCH:?}"
package=$1 version=$2 commit=$3 homepage=$4 folder=$5
shift 5
export LC_ALL=C

known=$(ldconfig -p)
# owner LIBRARY: the package of a library as the linker finds it; dpkg knows some files by their place below /usr.
owner() {
  local path
  path=$(awk -v name="$1" '$1 == name && /x86-64/ && !found { found = $NF } END { print found }' <<<"$known")
  [ -n "$path" ] || path=/lib64/$1
  path=$(realpath -- "$path")
  { dpkg-query -S "$path" 2>/dev/null || dpkg-query -S "${path#/usr}" 2>/dev/null || dpkg-query -S "/usr$path" ||
      echo "NONE-HAS-$1"; } | sed -n '1s/:.*//; 1p'
}

# licence PACKAGE: of all its files, where the copyright file is one for machines.
licence() {
  awk '
    /^Files: \*/ { all = 1 }
    /^$/ { all = 0 }
    all && /^License:/ { sub(/^License: */, ""); print; exit }
  ' "/usr/share/doc/$1/copyright" 2>/dev/null | sed -e 's/|/ or /g' -e 's/"//g'
}

mapfile -t libraries < <(for program in "$@"; do readelf -d "$program" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p'; done | sort -u)
mapfile -t parts < <({ for library in "${libraries[@]}"; do owner "$library"; done; tr ' ' '\n' <<<"$compiled_in"; } | sort -u)
[[ "${parts[*]}" != *NONE-HAS-* ]] || { echo "bill-of-materials: no package for one of ${parts[*]}" >&2; exit 1; }

{
  cat <<HEAD
{
  "spdxVersion": "SPDX-2.3",
  "dataLicense": "CC0-1.0",
  "SPDXID": "SPDXRef-DOCUMENT",
  "name": "$package-$version",
  "documentNamespace": "$homepage/spdx/$package-$version-$commit",
  "creationInfo": {"created": "$(date -u -d "@$SOURCE_DATE_EPOCH" +%FT%TZ)", "creators": ["Tool: scripts/bill-of-materials.sh"]},
  "hasExtractedLicensingInfos": [
    {"licenseId": "LicenseRef-not-yet-chosen", "name": "not yet chosen",
     "extractedText": "The owner has not chosen a licence for Brickfall yet. All rights are reserved."}
  ],
  "packages": [
    {"SPDXID": "SPDXRef-brickfall", "name": "$package", "versionInfo": "$version", "downloadLocation": "$homepage",
     "filesAnalyzed": false, "licenseConcluded": "LicenseRef-not-yet-chosen", "licenseDeclared": "LicenseRef-not-yet-chosen",
     "copyrightText": "NOASSERTION", "sourceInfo": "commit $commit"}
HEAD
  for part in "${parts[@]}"; do
    said=$(licence "$part")
    cat <<PART
    ,{"SPDXID": "SPDXRef-${part//[^A-Za-z0-9.-]/-}", "name": "$part", "versionInfo": "$(dpkg-query -W -f '${Version}' "$part")",
     "supplier": "Organization: Debian", "downloadLocation": "https://packages.debian.org/$part", "filesAnalyzed": false,
     "licenseConcluded": "NOASSERTION", "licenseDeclared": "NOASSERTION", "copyrightText": "NOASSERTION",
     "licenseComments": "${said:-as its copyright file tells in words}: /usr/share/doc/$part/copyright",
     "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
       "referenceLocator": "pkg:deb/debian/$part@$(dpkg-query -W -f '${Version}' "$part" | sed 's/+/%2B/g; s/:/%3A/g; s/~/%7E/g')?arch=amd64"}]}
PART
  done
  echo '  ],'
  echo '  "relationships": ['
  echo '    {"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES", "relatedSpdxElement": "SPDXRef-brickfall"}'
  for part in "${parts[@]}"; do
    kind=DYNAMIC_LINK
    [[ " $compiled_in " != *" $part "* ]] || kind=CONTAINS
    echo "    ,{\"spdxElementId\": \"SPDXRef-brickfall\", \"relationshipType\": \"$kind\", \"relatedSpdxElement\": \"SPDXRef-${part//[^A-Za-z0-9.-]/-}\"}"
  done
  echo '  ]'
  echo '}'
} >"$folder/$package.spdx.json"

{
  cat <<HEAD
Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: Brickfall
Source: $homepage
Comment:
 The licence of Brickfall itself is not yet chosen by its owner: until then all
 rights are reserved.
 .
 It is made with these packages of Debian. Their licences are theirs; each has
 them in full in /usr/share/doc/PACKAGE/copyright. What is marked * is compiled
 into the programs, all else is linked when they start.
 .
HEAD
  for part in "${parts[@]}"; do
    mark=' '
    [[ " $compiled_in " != *" $part "* ]] || mark='*'
    said=$(licence "$part")
    printf ' %s %s %s: %s\n' "$mark" "$part" "$(dpkg-query -W -f '${Version}' "$part")" "${said:-see there}"
  done
  cat <<TAIL

Files: *
Copyright: $(date -u -d "@$SOURCE_DATE_EPOCH" +%Y) The Brickfall maintainers
License: not-yet-chosen
 The owner has not chosen a licence for Brickfall yet. All rights are reserved.
TAIL
} >"$folder/copyright"
