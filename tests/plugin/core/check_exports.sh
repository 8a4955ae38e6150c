#!/bin/sh
# Compares the dynamic symbols a library defines with an allowed list and a required list.
# usage: check_exports.sh NM LIBRARY ALLOWED REQUIRED
#   ALLOWED:  extended regular expressions, one per line; every symbol must match one whole.
#   REQUIRED: demangled names, one per line; each must be among the symbols.
set -eu
nm_tool=$1 library=$2 allowed=$3 required=$4

symbols=$("$nm_tool" -DC --defined-only "$library" | cut -d' ' -f3- | sort -u)
status=0

unexpected=$(printf '%s\n' "$symbols" | grep -Evx -f "$allowed" || true)
if [ -n "$unexpected" ]; then
    echo "exported but not allowed:"
    printf '%s\n' "$unexpected" | sed 's/^/  /'
    status=1
fi

missing=$(grep -v '^$' "$required" | while IFS= read -r name; do
    printf '%s\n' "$symbols" | grep -Fqx -- "$name" || printf '%s\n' "$name"
done)
if [ -n "$missing" ]; then
    echo "required but not exported:"
    printf '%s\n' "$missing" | sed 's/^/  /'
    status=1
fi

[ "$status" -eq 0 ] && echo "$(printf '%s\n' "$symbols" | wc -l) exported symbols, all allowed"
exit "$status"
