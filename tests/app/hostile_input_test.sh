#!/usr/bin/env bash
# Hostile input: a FIFO among the cards, cards not UTF-8 or with a NUL, JSON nested very deep.
source "$(dirname "$0")/check_lib.sh"
ol=(--outlook "vdir:$work/ol")
run() { timeout 20 "$bin" "$@" >"$work/out" 2>"$work/err"; echo $?; }

for name in Alpha Omega; do
  echo "{\"FileAs\": \"$name\", \"CompanyName\": \"$name Ltd\"}" | "$bin" contacts put "${ol[@]}" --json - >/dev/null
done
cards="$work/ol/default/contacts"

# A FIFO under a card's name is passed over, not waited on.
mkfifo "$cards/x.vcf"
same "fifo: list does not hang" "$(run contacts list "${ol[@]}")" 0
same "fifo: the cards still list" "$(wc -l <"$work/out")" 2

# A card that is not UTF-8 lists with the others, its bad bytes as U+FFFD, its file named once.
vcard latin "Caf$(printf '\xe9') Ol$(printf '\xe9')" 'N:;;;;' >"$cards/latin.vcf"
# A NUL byte does not cut the value short.
printf 'BEGIN:VCARD\r\nVERSION:3.0\r\nUID:nul\r\nFN:Jo\0e Bloggs\r\nN:;;;;\r\nEND:VCARD\r\n' >"$cards/nul.vcf"
same "bad bytes: list --json exit" "$(run contacts list "${ol[@]}" --json)" 0
names=$(python3 -c 'import json,sys; print("|".join(sorted(c["FullName"] for c in json.load(sys.stdin))))' <"$work/out")
same "bad bytes: every card listed, bytes replaced" "$names" "||Caf� Ol�|Jo�e Bloggs"
same "bad bytes: one warning per file" "$(grep -c 'not UTF-8' "$work/err")" 2
for f in latin nul; do has "bad bytes: warning names $f.vcf" "$(cat "$work/err")" "$cards/$f.vcf"; done

# JSON nested 100,000 deep: a clear error, exit 1, no crash.
python3 -c 'print("{\"Body\": " + "[" * 100000 + "]" * 100000 + "}")' >"$work/deep.json"
same "deep json: exit" "$(run contacts put "${ol[@]}" --json "$work/deep.json")" 1
has "deep json: message" "$(cat "$work/err")" "nested more than"
# A NUL given to put is refused, not written into a card.
same "put NUL: exit" "$(echo '{"FileAs": "Nul", "Body": "a\u0000b"}' | run contacts put "${ol[@]}" --json -)" 1
has "put NUL: message" "$(cat "$work/err")" "Body holds a NUL"
same "deep json: nothing made" "$(ls "$cards" | grep -c '\.vcf$')" 5

finish hostile_input_test
