#!/usr/bin/env bash
# Hand-made mutations of product code, each of which the unit tests must catch.
#
#   scripts/mutations.sh [-p preset] [-a] [ID ...]
#
# For each mutation (all, or the IDs given): replace one distinctive line of a product file
# (the line must occur exactly once, else the mutation is reported "does not apply"), build the
# preset incrementally, run `ctest -R <regex>` and expect a failure, then restore the file.
# -a also runs every non-e2e test and lists the failing ones (which tests catch the mutation).
# Results: CAUGHT, SURVIVED (the tests passed: a gap), NO-APPLY, NO-BUILD. Exit status 1 when
# any mutation survived or did not apply. The tree is restored on exit, even on Ctrl-C.
set -u
cd "$(dirname "$0")/.."
preset=release
all_tests=0
while getopts "p:a" opt; do
    case $opt in
        p) preset=$OPTARG ;;
        a) all_tests=1 ;;
        *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))

# id | file | line as it is (trimmed) | line mutated | ctest -R regex expected to catch it
# Fields are separated by " @@ "; the line is matched after trimming its indentation; a
# mutated line DELETE drops the line.
MUTATIONS=$(cat <<'EOF'
P1 @@ plugin/pipeline/protocol_base.cpp @@ if (comma != std::string::npos) forwarded.resize(comma); @@ if (comma != std::string::npos) forwarded.resize(forwarded.size()); @@ ClientAddress\.FirstEntry
P2 @@ plugin/pipeline/digest_challenge.cpp @@ addTextElement(doc, "statusCode", "401"); @@ addTextElement(doc, "statusString", "Unauthorized"); addTextElement(doc, "statusCode", "401"); @@ UnauthorizedDocument|PipelineTest
P3 @@ plugin/pipeline/error_catalogue.cpp @@ if (errorNumber == kErrorBadAuthorization) return 401; @@ DELETE @@ ErrorCatalogue
P4 @@ plugin/pipeline/result_codes.cpp @@ return kErrorInternal; @@ return kErrorBadParameters; @@ ErrorCatalogue
R1 @@ plugin/relay/device_answer.cpp @@ if (answer.status != 200) return; @@ DELETE @@ RelayTest|DeviceRelay
R2 @@ plugin/relay/device_answer.cpp @@ http.setHead("Content-Type", answer.xml ? "application/xml" : "application/octet-stream"); @@ http.setHead("Content-Type", answer.xml ? "application/octet-stream" : "application/xml"); @@ RelayTest|DeviceRelay
R3 @@ plugin/relay/dev_cfg_base.cpp @@ if (converted != 0) { @@ if (converted < 0) { @@ RelayTest|DeviceRelay
H1 @@ plugin/pipeline/field_table.cpp @@ if (!value.isInt() || value.asInt() < row.minValue || value.asInt() > row.maxValue) { @@ if (!value.isInt() || value.asInt() < row.minValue || value.asInt() >= row.maxValue) { @@ ChannelAnswerToXml
H2 @@ plugin/pipeline/field_table.cpp @@ *text = boolText(value.asBool()); @@ *text = boolText(!value.asBool()); @@ ChannelAnswerToXml|ChannelRoundTrip
H3 @@ plugin/handlers/event_cfg.cpp @@ if (state != "high" && state != "low") { @@ if (state != "high") { @@ DeviceRequests|DeviceRelay
H4 @@ plugin/handlers/record_operation_playback.cpp @@ if (slash - segmentStart <= kIdentifierLength) return gatewayUri; @@ if (slash - segmentStart < kIdentifierLength) return gatewayUri; @@ RecordPlayback
A1 @@ plugin/alert/event_pto.cpp @@ if (open >= kMaxStreamsPerDevice) return Admission::kFull; @@ if (open > kMaxStreamsPerDevice) return Admission::kFull; @@ AlertStream\.|AlertServiceTest
A2 @@ plugin/alert/supervision.cpp @@ {"eventType", "heartBeat"},         {"eventState", "active"}, @@ {"eventState", "active"},         {"eventType", "heartBeat"}, @@ HeartBeat
A3 @@ plugin/alert/alert_stream_session.cpp @@ if (m_queuedBytes + bytes > kMaxQueuedBytes) { @@ if (false) { @@ AlarmOutput
D1 @@ gateway/hostlib/digest_check.cpp @@ if (credentials.realm != realm) return challengeDue(out, realm, settings, false); @@ DELETE @@ DigestCheck
D2 @@ gateway/hostlib/digest_check.cpp @@ out->retryLoginTime = std::max(settings.maxAttempts - lock.failures, 0); @@ out->retryLoginTime = std::max(settings.maxAttempts - lock.failures + 1, 0); @@ DigestCheck
D3 @@ gateway/hostlib/digest_header.cpp @@ if (existing.first == name) return std::nullopt; @@ if (existing.first == name) break; @@ DigestHeader
S1 @@ gateway/server/request_check.cpp @@ if (hosts > 1) return HeadRefusal::kHostRepeated; @@ if (hosts > 2) return HeadRefusal::kHostRepeated; @@ ^e2e_test_gateway_http$
S2 @@ gateway/server/connection_registry.cpp @@ if (count >= maxPerClient) return Admission::kClientFull; @@ if (count > maxPerClient) return Admission::kClientFull; @@ ^e2e_test_gateway_http$
S3 @@ gateway/server/request_check.cpp @@ if (head.version() < 11) return HeadRefusal::kCodingOnHttp10; @@ DELETE @@ ^e2e_test_gateway_http$
EOF
)

backup_dir=$(mktemp -d)
restore() {
    if [[ -n ${current_file:-} && -f $backup_dir/orig ]]; then
        cp "$backup_dir/orig" "$current_file"
        current_file=
    fi
}
trap 'restore; rm -rf "$backup_dir"' EXIT
trap 'exit 130' INT TERM

# Replaces the single line whose trimmed text is $2 in file $1 by $3 (same indentation).
# Prints the number of matching lines; changes the file only when there is exactly one.
mutate() {
    python3 - "$1" "$2" "$3" <<'PY'
import sys
path, old, new = sys.argv[1:4]
with open(path) as f:
    lines = f.read().split("\n")
hits = [i for i, line in enumerate(lines) if line.strip() == old.strip()]
print(len(hits))
if len(hits) == 1:
    i = hits[0]
    indent = lines[i][: len(lines[i]) - len(lines[i].lstrip())]
    lines[i] = "" if new.strip() == "DELETE" else indent + new.strip()
    with open(path, "w") as f:
        f.write("\n".join(lines))
PY
}

failures=0
log_dir=build/$preset/mutations
mkdir -p "$log_dir"
while IFS= read -r row; do
    [[ -z $row ]] && continue
    IFS=$'\x1f' read -r id file old new regex <<<"$(sed 's/ @@ /\x1f/g; s/ @@$/\x1f/' <<<"$row")"
    id=${id// /}
    if [[ $# -gt 0 && " $* " != *" $id "* ]]; then continue; fi
    if [[ ! -f $file ]]; then
        printf '%-3s NO-APPLY  %s is gone\n' "$id" "$file"
        failures=$((failures + 1))
        continue
    fi
    cp "$file" "$backup_dir/orig"
    current_file=$file
    hits=$(mutate "$file" "$old" "$new")
    if [[ $hits != 1 ]]; then
        restore
        printf '%-3s NO-APPLY  %s: the line occurs %s times: %s\n' "$id" "$file" "$hits" "$old"
        failures=$((failures + 1))
        continue
    fi
    if ! cmake --build --preset "$preset" -j2 >"$log_dir/$id.build.log" 2>&1; then
        restore
        printf '%-3s NO-BUILD  %s (see %s)\n' "$id" "$file" "$log_dir/$id.build.log"
        failures=$((failures + 1))
        continue
    fi
    if ctest --preset "$preset" -R "$regex" --timeout 900 >"$log_dir/$id.test.log" 2>&1; then
        verdict=SURVIVED
        failures=$((failures + 1))
    else
        verdict=CAUGHT
    fi
    caught_by=$(grep -E '\*\*\*Failed|\*\*\*Timeout|\*\*\*Exception' "$log_dir/$id.test.log" |
        sed -E 's/.*Test +#[0-9]+: ([^ ]+) .*/\1/' | tr '\n' ' ')
    if [[ $all_tests == 1 ]]; then
        ctest --preset "$preset" -LE e2e -j2 --timeout 120 >"$log_dir/$id.all.log" 2>&1
        caught_by="[all:] $(grep -E '\*\*\*Failed|\*\*\*Timeout|\*\*\*Exception' \
            "$log_dir/$id.all.log" | sed -E 's/.*Test +#[0-9]+: ([^ ]+) .*/\1/' | tr '\n' ' ')"
    fi
    restore
    printf '%-3s %-9s %s  -R %s  %s\n' "$id" "$verdict" "$file" "$regex" "$caught_by"
done <<<"$MUTATIONS"
# Leave the build matching the restored sources.
cmake --build --preset "$preset" -j2 >"$log_dir/restore.build.log" 2>&1
exit $((failures > 0))
