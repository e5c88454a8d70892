#!/usr/bin/env bash
# Shows every certificate of the system's bundle, and every object of a sample folder (certs, crls,
# csr and cmp in it) when one is named, with the program and encodes each anew:
#   scripts/check-samples.sh PROGRAM [FOLDER]
# A file that is not read, or does not come back byte for byte, must stand in doc/unread-samples.md;
# a file that stands there and reads well is reported too. Exits 1 when the two differ.
set -uo pipefail
cd "$(dirname "$0")/.."

program=${1:?names the program, build/release/tools/pkixcmp/pkixcmp}
folder=${2:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
list=doc/unread-samples.md
read_ok=0 same=0 listed=0 bad=0

judge() {  # FILE NAME
    local problem=
    if ! "$program" show "$1" >"$work/xer" 2>"$work/error"; then
        problem="not read: $(head -1 "$work/error")"
    else
        read_ok=$((read_ok + 1))
        "$program" show --format der "$1" >"$work/der" 2>/dev/null
        if cmp -s "$1" "$work/der"; then same=$((same + 1)); else problem="encodes differently"; fi
    fi
    if [[ -n "$problem" ]] && grep -qF "\`$2\`" "$list"; then
        listed=$((listed + 1))
    elif [[ -n "$problem" ]]; then
        bad=$((bad + 1))
        echo "$2: $problem"
    elif grep -qF "\`$2\`" "$list"; then
        bad=$((bad + 1))
        echo "$2: listed, but reads and encodes well"
    fi
}

bundle=/etc/ssl/certs/ca-certificates.crt
if [[ ! -f "$bundle" ]]; then
    bad=1
    echo "$bundle is missing: install ca-certificates"
else
    csplit -s -z -n 4 -f "$work/ca-" "$bundle" '/BEGIN CERT/' '{*}'
    for pem in "$work"/ca-*; do
        openssl x509 -in "$pem" -outform DER -out "$pem.crt" && judge "$pem.crt" "$(basename "$pem")"
    done
fi
[[ -z "$folder" ]] || for file in "$folder"/{certs,crls,csr,cmp}/*; do
    [[ -f "$file" ]] && judge "$file" "$(basename "$(dirname "$file")")/$(basename "$file")"
done
echo "$read_ok read, $same encoded to the same bytes, $listed listed with a reason, $bad wrong"
exit $((bad != 0))
