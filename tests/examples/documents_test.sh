#!/usr/bin/env bash
# What the documents promise about the sources: the example is the one that is built, and every log line and every
# setting is described, none that does not exist.
# documents_test.sh SOURCE_FOLDER
set -euo pipefail
cd "$1"
mapfile -t sources < <(find StreamSdk RemoteInput common rxdiag -name '*.cpp' -o -name '*.h')
failed=0
complain() {
    printf '%s\n' "$*"
    failed=1
}

example=$(<examples/host.cpp)
[[ $(<docs/integration.md) == *'```c++'$'\n'"$example"$'\n''```'* ]] ||
    complain "docs/integration.md does not hold examples/host.cpp as it is"

# Each as a document writes it: `text` (level, `identifier`), or only (level, `identifier`) where the text repeats.
log=$(perl -0777 -ne 'while (/\bLOG_(VERBOSE|DEBUG|INFO|WARNING|ERROR)\(\s*0x([0-9A-F]{8}),\s*\w+,\s*"((?:[^"\\]|\\.)*)"/g)
    { my ($level, $id, $text) = (lc $1, $2, $3); $text =~ s/\\(.)/$1/g; print "$id\t$level\t$text\n" }' "${sources[@]}")
document=$(tr '\n' ' ' <docs/troubleshooting.md | tr -s ' ')
while IFS=$'\t' read -r id level text; do
    [[ $document == *"($level, \`$id\`)"* ]] || complain "docs/troubleshooting.md lacks ($level, \`$id\`): $text"
    [[ $document == *"\`$(tr -s ' ' <<<"$text")\`"* ]] || complain "docs/troubleshooting.md lacks the text \`$text\` of $id"
done <<<"$log"
# shellcheck disable=SC2046 # names without blanks
statements=$(grep -hoE '\bLOG_(VERBOSE|DEBUG|INFO|WARNING|ERROR)\(' $(printf '%s\n' "${sources[@]}" | grep -v /Log.h) | wc -l)
[ "$statements" = "$(wc -l <<<"$log")" ] || complain "$statements log statements, but $(wc -l <<<"$log") were understood"

for id in $(grep -oE '`[0-9A-F]{8}`' docs/troubleshooting.md | tr -d '`' | sort -u); do
    grep -qE "0x$id\b" "${sources[@]}" || complain "docs/troubleshooting.md describes $id, which no source writes"
done

# Composed lines and texts of exceptions: their constant beginnings.
while IFS= read -r text; do
    [[ $document == *"$(tr -s ' ' <<<"$text")"* ]] || complain "docs/troubleshooting.md lacks \"$text\""
done < <(perl -0777 -ne 'print "$1\n" while /(?:rxDiag\.\w+ <<|runtime_error\((?:std::string\()?)\s*"([^"]*?) ?"/g' "${sources[@]}")

# shellcheck disable=SC2046
for key in $(grep -hoE '\bGet\("[A-Za-z]+"' $(printf '%s\n' "${sources[@]}" | grep 'cpp$') | cut -d'"' -f2 | sort -u); do
    grep -q "\b$key\b" docs/settings.md || complain "docs/settings.md lacks $key"
done
exit $failed
