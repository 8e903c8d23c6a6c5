# Telling an editor why there is no debug adapter: what ends without a word of the protocol, it only
# says has ended.

# refuse_client WHY: answers the first request of the client at standard input, if there is one.
refuse_client() {
    local LC_ALL=C line size=0 message seq=1 why body
    [[ ! -t 0 ]] || return 0
    while read -r -t 10 line && [[ -n ${line%$'\r'} ]]; do
        [[ ! $line =~ ^Content-Length:\ *([0-9]{1,6}) ]] || size=${BASH_REMATCH[1]}
    done
    read -r -t 10 -N "$size" message || return 0
    [[ ! $message =~ \"seq\"[[:space:]]*:[[:space:]]*([0-9]+) ]] || seq=${BASH_REMATCH[1]}
    why=${1//\\/\\\\}
    why=${why//\"/\\\"}
    why=${why//[[:cntrl:]]/ }
    body='{"seq": 1, "type": "response", "command": "initialize", "success": false'
    body+=", \"request_seq\": $seq, \"message\": \"$why\", \"body\": {\"error\":"
    body+=" {\"id\": 1, \"format\": \"${why//[\{\}]/ }\", \"showUser\": true}}}"
    printf 'Content-Length: %d\r\n\r\n%s' "${#body}" "$body"
}
