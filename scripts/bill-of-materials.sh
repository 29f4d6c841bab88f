#!/usr/bin/env bash
# Writes what a package is made of into a folder of it: an SPDX bill of materials (PACKAGE.spdx.json) and the copyright file.
# The parts are the Debian packages of the libraries that the programs name, with the versions that they were linked with,
# and the licences of their copyright files; the text of one that has no SPDX identifier goes along. Called by
# scripts/package.sh:
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

# What SPDX calls what Debian's copyright files name so; one of them has a slip of the pen.
declare -A identifiers=(
  [Apache-2.0]=Apache-2.0 [curl]=curl [Expat]=MIT [GPL-2]=GPL-2.0-only [LGPL-2.1+]=LGPL-2.1-or-later
  [LPGL-2.1+]=LGPL-2.1-or-later [LGPL-3]=LGPL-3.0-only [Zlib]=Zlib [zlib/libpng]=Zlib
)
declare -A expressions=() texts=()  # of a part; of a licence without an identifier

spdx_id() { echo "${1//[^A-Za-z0-9.-]/-}"; }

# paragraph PART NAME: the licence of that name, as the part's copyright file has it in full.
paragraph() {
  awk -v name="$2" '
    /^[^ ]/ { if (text != "") exit; inside = $0 == "License: " name }
    inside && /^ / { sub(/^ +\.?/, ""); text = text $0 "\n" }
    END { printf "%s", text }
  ' "/usr/share/doc/$1/copyright"
}

# read_licence PART: its expression. A name without an identifier is a reference to that licence's text; where the
# copyright file tells in words, it is a reference to all of them.
read_licence() {
  local file expression='' word reference text
  file=$(realpath -- "/usr/share/doc/$1/copyright")
  for word in $(licence "$1"); do
    case $word in
      or | and) expression+=" ${word^^} " ;;
      *)
        if [ -n "${identifiers[$word]:-}" ]; then
          expression+=${identifiers[$word]}
          continue
        fi
        text=$(paragraph "$1" "$word")
        [ -n "$text" ] || { expression=''; break; }
        reference=LicenseRef-$(spdx_id "$1-$word")
        texts[$reference]=$text
        expression+=$reference
        ;;
    esac
  done
  if [ -z "$expression" ]; then
    text=${file%/copyright}
    expression=LicenseRef-$(spdx_id "${text##*/}")
    texts[$expression]=$(cat "$file")
  fi
  expressions[$1]=$expression
}

mapfile -t libraries < <(for program in "$@"; do readelf -d "$program" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p'; done | sort -u)
mapfile -t parts < <({ for library in "${libraries[@]}"; do owner "$library"; done; tr ' ' '\n' <<<"$compiled_in"; } | sort -u)
[[ "${parts[*]}" != *NONE-HAS-* ]] || { echo "bill-of-materials: no package for one of ${parts[*]}" >&2; exit 1; }
for part in "${parts[@]}"; do read_licence "$part"; done
own="The owner has not chosen a licence for Brickfall yet. All rights are reserved."
copyright="$(date -u -d "@$SOURCE_DATE_EPOCH" +%Y) The Brickfall maintainers"
texts[LicenseRef-not-yet-chosen]=$own

{
  cat <<HEAD
{
  "spdxVersion": "SPDX-2.3",
  "dataLicense": "CC0-1.0",
  "SPDXID": "SPDXRef-DOCUMENT",
  "name": "$package-$version",
  "documentNamespace": "$homepage/spdx/$package-$version-$commit",
  "creationInfo": {"created": "$(date -u -d "@$SOURCE_DATE_EPOCH" +%FT%TZ)", "creators": ["Tool: scripts/bill-of-materials.sh"]},
  "packages": [
    {"SPDXID": "SPDXRef-brickfall", "name": "$package", "versionInfo": "$version", "downloadLocation": "$homepage",
     "filesAnalyzed": false, "licenseConcluded": "LicenseRef-not-yet-chosen", "licenseDeclared": "LicenseRef-not-yet-chosen",
     "copyrightText": "Copyright $copyright", "sourceInfo": "commit $commit"}
HEAD
  for part in "${parts[@]}"; do
    cat <<PART
    ,{"SPDXID": "SPDXRef-$(spdx_id "$part")", "name": "$part", "versionInfo": "$(dpkg-query -W -f '${Version}' "$part")",
     "supplier": "Organization: Debian", "downloadLocation": "https://packages.debian.org/$part", "filesAnalyzed": false,
     "licenseDeclared": "${expressions[$part]}",
     "licenseComments": "of all files but those that /usr/share/doc/$part/copyright names",
     "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
       "referenceLocator": "pkg:deb/debian/$(dpkg-query -W -f '${Package}@${Version}' "$part" | sed 's/+/%2B/g; s/:/%3A/g')?arch=amd64"}]}
PART
  done
  echo '  ],'
  echo '  "relationships": ['
  echo '    {"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES", "relatedSpdxElement": "SPDXRef-brickfall"}'
  for part in "${parts[@]}"; do
    kind=DYNAMIC_LINK
    [[ " $compiled_in " != *" $part "* ]] || kind=CONTAINS
    echo "    ,{\"spdxElementId\": \"SPDXRef-brickfall\", \"relationshipType\": \"$kind\", \"relatedSpdxElement\": \"SPDXRef-$(spdx_id "$part")\"}"
  done
  echo '  ],'
  echo '  "hasExtractedLicensingInfos": ['
  comma=''
  for reference in $(printf '%s\n' "${!texts[@]}" | sort); do
    printf '    %s{"licenseId": "%s", "extractedText": %s}\n' "$comma" "$reference" "$(jq -Rs . <<<"${texts[$reference]}")"
    comma=,
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
Copyright: $copyright
License: not-yet-chosen
 $own
TAIL
} >"$folder/copyright"
