#!/bin/bash
# The daemon's cycle as a shell loop of curl, jq and mv: what one might write instead, and what the
# daemon is measured against.
orvane=~/.orvane
setup=/private/tmp/dev.orvane.setup
log=$orvane/logs/policy-daemon.activity.jsonl

# get FILE URL HEADER...: stores the body, sets the status, leaves a line in the log.
get() {
    local file=$1 url=$2 options=() header bytes milliseconds
    shift 2
    for header in "$@"; do
        options+=(-H "$header")
    done
    read -r status bytes milliseconds < <(curl -s --max-time 360 -o "$file" "${options[@]}" \
        -w '%{http_code} %{size_download} %{time_total}\n' "$url")
    mkdir -p "${log%/*}"
    printf '{"bytes":%s,"daemon":"policy-daemon","method":"GET","ms":%s,"pid":%s,"status":%s,"ts":"%s","url":"%s"}\n' \
        "$bytes" "${milliseconds%.*}" "$$" "$status" "$(date -u +%FT%T.%3NZ)" "$url" >>"$log"
}

while true; do
    read -r base key < <(jq -r '.api_url + " " + .api_key' "$setup/enroll-config.json")
    headers=("X-Orv-Key: $key" 'Accept: application/json')
    if etag=$(jq -er '.etag | strings' "$orvane/policy-etag.json" 2>/dev/null); then
        headers+=("If-None-Match: \"$etag\"")
    fi
    get "$orvane/policy.json.tmp" "$base/api/orvane/v1/connect/guard-config/?wait=300" "${headers[@]}"
    if [[ $status == 200 ]] && jq -e 'type == "object"' "$orvane/policy.json.tmp" >/dev/null; then
        mv "$orvane/policy.json.tmp" "$orvane/policy.json"
        if jq -ce '{etag: (.etag | strings)}' "$orvane/policy.json" >"$orvane/policy-etag.json.tmp"; then
            mv "$orvane/policy-etag.json.tmp" "$orvane/policy-etag.json"
        fi
        get "$orvane/guard-effective.json.tmp" "$base/api/orvane/v1/guard/effective/" "X-Orv-Key: $key"
        [[ $status != 200 ]] || mv "$orvane/guard-effective.json.tmp" "$orvane/guard-effective.json"
    fi
    if jq -ce '(.guard_config // .config).capture | {enabled, intercept_hosts: .hosts, suppress_ech}' \
        "$orvane/policy.json" >"$setup/capture-policy.json.tmp" 2>/dev/null &&
        ! cmp -s "$setup/capture-policy.json.tmp" "$setup/capture-policy.json"; then
        mv "$setup/capture-policy.json.tmp" "$setup/capture-policy.json"
    fi
done
