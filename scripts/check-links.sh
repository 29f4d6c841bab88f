#!/usr/bin/env bash
# Follows every link of the documents to a file of the repository, and to a heading where it names one. Links to the web are
# left alone.
set -euo pipefail
cd "$(dirname "$0")/.."
bad=0

# anchors FILE: of its headings, as a forge makes them: small letters, no punctuation, a dash for a blank.
anchors() {
  awk '/^```/ { code = !code } !code && /^#+ / { sub(/^#+ +/, ""); print tolower($0) }' "$1" |
    sed -e 's/\[\([^]]*\)\]([^)]*)/\1/g' -e 's/[^[:alnum:] _-]//g' -e 's/ /-/g'
}

# links FILE: "LINE TARGET" of each, pictures too; code is no text.
links() {
  awk '
    /^```/ { code = !code }
    code || /^    / { next }
    {
      text = $0
      gsub(/`[^`]*`/, "", text)
      while (match(text, /\]\([^)]*\)/)) {
        print NR, substr(text, RSTART + 2, RLENGTH - 3)
        text = substr(text, RSTART + RLENGTH)
      }
    }' "$1"
}

count=0
while IFS= read -r file; do
  while read -r line target; do
    [[ "$target" =~ ^[a-z]+: ]] && continue
    count=$((count + 1))
    path=${target%%#*}
    to=$file
    [ -z "$path" ] || to=$(realpath -m --relative-to=. -- "$(dirname "$file")/$path")
    if [ ! -e "$to" ] || [[ "$to" == ../* ]]; then
      echo "check-links: $file:$line: there is no $target" >&2
      bad=1
    elif [[ "$target" == *'#'* ]] && ! grep -qxF -e "${target#*#}" < <(anchors "$to"); then
      echo "check-links: $file:$line: $to has no heading for #${target#*#}" >&2
      bad=1
    fi
  done < <(links "$file")
done < <(git ls-files -co --exclude-standard '*.md')
[ "$bad" -eq 0 ] && echo "check-links: $count links, and each leads somewhere"
exit "$bad"
