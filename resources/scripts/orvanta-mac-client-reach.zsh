#!/bin/zsh
# Connector Reachability: a one-shot health check of the Orvanta endpoints (name lookup, TCP connect, TLS
# handshake and certificate), the system proxy settings, the Orvanta Mac Connector process and, when a session
# is open, the relay the remote-desktop client is connected to. Writes an HTML report to the Desktop.
emulate -R zsh
source ${0:A:h}/orvanta-common.zsh 2>/dev/null || {
    print -r -- "Cannot read orvanta-common.zsh beside this script (${0:A:h}): reinstall the toolkit."
    exit 1
}

usage() { print -r -- "usage: ${ZSH_ARGZERO:t} [--help]"; }
case $# in
0) ;;
*)
    if [[ $1 == (-h|--help) && $# == 1 ]]; then usage; exit 0; fi
    print -r -- "Unknown argument: $1"; usage; exit 2 ;;
esac

typeset -g WORK=$(mktemp -d "${TMPDIR:-/tmp}/orvanta-reach.XXXXXX") || { print -r -- "Cannot create a temporary folder"; exit 1 }
cleanup() { orv_kill_jobs; rm -rf $WORK }
TRAPEXIT() { orv_in_subshell || cleanup }
TRAPINT() { orv_subshell_stop 130; orv_say "Stopped (interrupt): no report written."; exit 130 }
TRAPTERM() { orv_subshell_stop 143; orv_say "Stopped: no report written."; exit 143 }

typeset -g T0=$EPOCHREALTIME
orv_say "Orvanta Connector Reachability $ORV_SCRIPT_VERSION on ${ORV_OS}, time-out ${ORV_TIMEOUT}s per check"

# The TLS library's flavour decides which options exist (LibreSSL has no x509 -ext, no s_client -curves).
typeset -g SSL_VERSION=""
if orv_have openssl "TLS handshakes and certificates cannot be checked"; then
    SSL_VERSION=$(openssl version 2>/dev/null)
    orv_say "   INFO  TLS library: $SSL_VERSION"
fi
orv_have curl "the TLS handshake time is taken from openssl's wall time instead" >/dev/null

# UTC time of a certificate date such as "Dec  3 09:08:38 2026 GMT", as epoch seconds.
cert_epoch() { (export TZ=UTC; strftime -r '%b %d %H:%M:%S %Y' "${1% GMT}" 2>/dev/null) }

# host_matches HOST NAMES...: the certificate names (DNS:x, IP Address:y) cover HOST; wildcards cover one label.
host_matches() {
    local host=${(L)1} n v; shift
    for n in "$@"; do
        v=${(L)${n#*:}}
        if [[ $n == IP* ]]; then
            orv_is_ip $host && [[ $v == $host ]] && return 0
        elif [[ $n == DNS:* ]]; then
            [[ $v == $host ]] && return 0
            [[ $v == \*.* && ${host#*.} == ${v#\*.} && ${host%%.*} != "" && $host == *.* ]] && return 0
        fi
    done
    return 1
}

# check_endpoint ROLE TARGET WITH-TLS: one endpoint, step by step; its details go to the report.
check_endpoint() {
    local role=$1 target=$2 with_tls=$3 host port addr ms t0 out rc
    orv_split $target 443; host=$ORV_HOST; port=$ORV_PORT
    orv_raw "<h3>$(orv_esc "$role: $target"; print -rn -- $REPLY)</h3>"
    orv_table "" "Check" "Result"
    if ! orv_valid_host $host || [[ $port != <1-65535> ]]; then
        orv_result FAIL "$role $target: not a valid host name and port"
        orv_row FAIL "Target" "not a valid host name and port: $target"
        orv_table_end; return
    fi

    orv_step "$role $host: name lookup"
    t0=$EPOCHREALTIME
    if orv_is_ip $host; then
        addr=$host
        orv_result INFO "$role $host: an address, no lookup needed"
        orv_row INFO "Name lookup" "$host is an address"
    elif orv_resolve $host; then
        orv_ms_since $t0; ms=$REPLY
        addr=$reply[1]
        orv_result OK "$role $host resolves to ${(j:, :)reply} in $ms ms"
        orv_row OK "Name lookup" "${(j:, :)reply} ($ms ms, system resolver)"
    else
        orv_result FAIL "$role $host: the name does not resolve"
        orv_row FAIL "Name lookup" "$host does not resolve with the system resolver"
        orv_table_end; return
    fi

    orv_step "$role $host: TCP connect to $addr port $port"
    if orv_tcp $addr $port; then
        orv_result OK "$role $host: TCP connect to port $port in $REPLY ms"
        orv_row OK "TCP connect" "$addr port $port in $REPLY ms"
    else
        rc=$?
        local why="refused or unreachable"
        (( rc == 124 )) && why="no answer within ${ORV_TIMEOUT}s (filtered or down)"
        (( rc == 3 )) && why="no tool to open a connection (zsh/net/tcp, nc or curl)"
        orv_result FAIL "$role $host: TCP connect to $addr port $port failed: $why"
        orv_row FAIL "TCP connect" "$addr port $port: $why"
        orv_table_end; return
    fi

    if [[ $with_tls != tls ]]; then
        orv_row INFO "TLS" "not checked on port $port (the remote-desktop protocol starts TLS itself later)"
        orv_table_end; return
    fi
    if [[ -z $SSL_VERSION ]]; then
        orv_result WARN "$role $host: TLS not checked (openssl missing)"
        orv_row WARN "TLS" "not checked: openssl is not installed"
        orv_table_end; return
    fi

    orv_step "$role $host: TLS handshake"
    orv_hostport $addr $port
    local -a sargs=(s_client -connect $REPLY -showcerts)
    orv_is_ip $host || sargs+=(-servername $host)
    [[ -n $ORV_CA_FILE ]] && sargs+=(-CAfile $ORV_CA_FILE)
    t0=$EPOCHREALTIME
    out=$(orv_limit $ORV_TIMEOUT openssl $sargs </dev/null 2>&1); rc=$?
    local wall; orv_ms_since $t0; wall=$REPLY
    local proto="" cipher="" verify=""
    [[ $out == (#b)*New,\ ([^,]##),\ Cipher\ is\ ([^$'\n']##)* ]] && { proto=$match[1]; cipher=$match[2] }
    [[ $out == (#b)*Protocol\ #:\ ([^$'\n']##)* && ( -z $proto || $proto == "(NONE)" ) ]] && proto=$match[1]
    [[ $out == (#b)*Verify\ return\ code:\ ([^$'\n']##)* ]] && verify=$match[1]
    if [[ -z $cipher || $cipher == "(NONE)" || $cipher == 0000 ]]; then
        local last=${${(M)${(f)out}:#*(error|errno|alert|refused|unexpected)*}[1]}
        (( rc == 124 )) && last="no handshake within ${ORV_TIMEOUT}s"
        orv_result FAIL "$role $host: TLS handshake failed${last:+: $last}"
        orv_row FAIL "TLS handshake" "failed${last:+: $last}"
        orv_table_end; return
    fi
    local hs="$wall ms (openssl wall time, includes connect and process start)"
    if (( $+commands[curl] )); then
        local url curl_out
        if orv_is_ip $host; then orv_hostport $host $port; url="https://$REPLY/"; else url="https://$host:$port/"; fi
        local -a cargs=(-s -k --noproxy '*' -o /dev/null -r 0-0 --max-time $ORV_TIMEOUT -w '%{time_connect} %{time_appconnect}')
        orv_is_ip $host || cargs+=(--resolve "$host:$port:$addr")
        curl_out=$(orv_limit $(( ORV_TIMEOUT + 1 )) curl $cargs $url 2>/dev/null)
        local -a tt=(${=curl_out})
        if (( ${#tt} == 2 && tt[2] > 0 )); then
            hs="$(printf '%.1f' $(( (tt[2] - tt[1]) * 1000.0 ))) ms"
        fi
    fi
    orv_result OK "$role $host: $proto, $cipher, handshake $hs"
    orv_row OK "TLS handshake" "$proto, $cipher, $hs"

    # The certificate, from the chain the server sent.
    local pem=$WORK/chain.pem leaf=$WORK/leaf.pem
    awk '/-----BEGIN CERTIFICATE-----/{on=1} on{print} /-----END CERTIFICATE-----/{on=0}' <<<"$out" > $pem
    awk '/-----BEGIN CERTIFICATE-----/{on=1} on{print} /-----END CERTIFICATE-----/{exit}' <<<"$out" > $leaf
    local text subject issuer not_after san
    text=$(openssl x509 -in $leaf -noout -text 2>/dev/null)
    subject=$(openssl x509 -in $leaf -noout -subject -nameopt utf8,sep_comma_plus_space,esc_ctrl 2>/dev/null); subject=${subject#subject=}
    issuer=$(openssl x509 -in $leaf -noout -issuer -nameopt utf8,sep_comma_plus_space,esc_ctrl 2>/dev/null); issuer=${issuer#issuer=}
    not_after=$(openssl x509 -in $leaf -noout -enddate 2>/dev/null); not_after=${not_after#notAfter=}
    if [[ -z $text ]]; then
        orv_result FAIL "$role $host: the server sent no readable certificate"
        orv_row FAIL "Certificate" "none readable"
        orv_table_end; return
    fi
    local -a lines=(${(f)text}) names
    local i
    for (( i = 1; i < ${#lines}; i++ )); do
        if [[ $lines[i] == *"X509v3 Subject Alternative Name"* ]]; then
            san=${lines[i+1]##[[:space:]]#}; break
        fi
    done
    names=(${(s:, :)san})
    orv_row INFO "Subject" "$subject"
    orv_row INFO "Issuer" "$issuer"
    orv_row INFO "Names" "${san:-none (no subject alternative names)}"
    local keyinfo=${${(M)lines:#*Public-Key:*}##[[:space:]]#} sigalg=${${(M)lines:#*Signature Algorithm:*}[1]##[[:space:]]#}
    [[ -n $keyinfo ]] && orv_row INFO "Key, signature" "$keyinfo; ${sigalg#Signature Algorithm: }"

    if orv_is_ip $host && [[ $role == Relay* ]]; then
        orv_row INFO "Name match" "not checked: the relay is known only by its address"
    elif host_matches $host $names; then
        orv_result OK "$role $host: the certificate names the host"
        orv_row OK "Name match" "$host is covered by the certificate"
    else
        orv_result FAIL "$role $host: the certificate does not name $host"
        orv_row FAIL "Name match" "$host is not among the certificate's names (a TLS-inspecting proxy or a wrong server?)"
    fi

    local end days
    end=$(cert_epoch $not_after)
    if [[ $end == <-> ]]; then
        days=$(( (end - EPOCHSECONDS) / 86400 ))
        if (( end < EPOCHSECONDS )); then
            orv_result FAIL "$role $host: the certificate expired on $not_after"
            orv_row FAIL "Expiry" "expired on $not_after"
        elif (( days < 14 )); then
            orv_result WARN "$role $host: the certificate expires in $days days ($not_after)"
            orv_row WARN "Expiry" "$not_after, $days days left"
        else
            orv_result OK "$role $host: the certificate is valid for $days more days"
            orv_row OK "Expiry" "$not_after, $days days left"
        fi
    else
        orv_row WARN "Expiry" "cannot read the date: $not_after"
    fi

    # Chain: the TLS library's verdict, and on macOS the Keychain's, which is what the client trusts.
    local chain_ok=0 chain_text="${SSL_VERSION%% *} verification: ${verify:-no result}"
    [[ $verify == 0\ * ]] && chain_ok=1
    if [[ $ORV_OS == Darwin && -z $ORV_CA_FILE ]] && orv_have security; then
        local -a certs vargs=(verify-cert -p ssl -L -q)
        awk -v dir=$WORK 'BEGIN{n=0} /-----BEGIN CERTIFICATE-----/{n++; f=dir "/c" n ".pem"} n{print > f}' $pem
        for i in $WORK/c<->.pem(Nn); do vargs+=(-c $i); done
        orv_is_ip $host || vargs+=(-s $host)
        if orv_limit $ORV_TIMEOUT security $vargs >/dev/null 2>&1; then
            chain_ok=1; chain_text+="; macOS Keychain trust: trusted"
        else
            chain_ok=0; chain_text+="; macOS Keychain trust: NOT trusted"
        fi
        rm -f $WORK/c<->.pem(N)
    fi
    if (( chain_ok )); then
        orv_result OK "$role $host: certificate chain verified"
        orv_row OK "Chain" "$chain_text"
    else
        orv_result FAIL "$role $host: certificate chain not trusted ($chain_text)"
        orv_row FAIL "Chain" "$chain_text"
    fi
    orv_table_end
}

# --- Endpoints
orv_section "Orvanta endpoints"
typeset -a ENDPOINTS=(${=ORV_ENDPOINTS})
typeset -i k=0
for ep in $ENDPOINTS; do
    (( k++ ))
    role="Endpoint"; [[ $ep == $ORV_FRONTEND ]] && role="Front end"
    check_endpoint "$role" $ep tls
done
(( k == 0 )) && { orv_result FAIL "No endpoints to check: ORVANTA_ENDPOINTS is empty"; orv_para note "No endpoints were configured." }

# --- Proxy configuration
orv_step "System proxy configuration"
orv_section "Proxy configuration"
typeset -a PROXY_ON=()
if [[ $ORV_OS == Darwin ]] && orv_have scutil "the system proxy settings cannot be read"; then
    out=$(orv_limit 5 scutil --proxy 2>&1)
    orv_table "Setting" "Value"
    for line in ${(f)out}; do
        [[ $line == *:* ]] || continue
        key=${${line%% :*}##[[:space:]]#}; val=${line#*: }
        [[ $key == <-> ]] && key="exception"
        orv_row "" "$key" "$val"
        [[ $key == (HTTP|HTTPS|SOCKS|ProxyAutoConfig|ProxyAutoDiscovery)Enable && $val == 1 ]] && PROXY_ON+=(${key%Enable})
    done
    orv_table_end
else
    # Linux: the proxy variables of this process, and the desktop's setting where there is one.
    orv_table "Setting" "Value"
    typeset -i any=0
    for v in http_proxy https_proxy all_proxy no_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY NO_PROXY; do
        if [[ -n ${(P)v} ]]; then
            val=${(P)v}
            val=${val/(#b)(:\/\/[^:\/@]##):[^@\/]##@/$match[1]:***@}   # no passwords in reports
            orv_row "" $v "$val"; any=1
            [[ ${(L)v} != no_proxy ]] && PROXY_ON+=($v)
        fi
    done
    if (( $+commands[gsettings] )); then
        mode=$(orv_limit 3 gsettings get org.gnome.system.proxy mode 2>/dev/null)
        if [[ -n $mode ]]; then
            orv_row "" "GNOME proxy mode" "$mode"; any=1
            [[ $mode == *(manual|auto)* ]] && PROXY_ON+=("GNOME $mode")
        fi
    fi
    (( any )) || orv_row "" "Proxy" "no proxy variables or desktop proxy settings"
    orv_table_end
fi
if (( ${#PROXY_ON} )); then
    orv_result WARN "A proxy is configured (${(j:, :)PROXY_ON}): web traffic may not go directly to the service"
else
    orv_result OK "No system proxy is configured"
fi

# --- The connector process
orv_step "Process '$ORV_CONNECTOR_PROCESS'"
orv_section "Orvanta Mac Connector"
if orv_pids $ORV_CONNECTOR_PROCESS; then
    orv_result OK "'$ORV_CONNECTOR_PROCESS' is running (process ${(j:, :)reply})"
    orv_para "" "'$ORV_CONNECTOR_PROCESS' is running as process ${(j:, :)reply}."
else
    orv_result WARN "'$ORV_CONNECTOR_PROCESS' is not running"
    orv_para "" "'$ORV_CONNECTOR_PROCESS' is not running. Start it before connecting to an Orvanta session."
fi

# --- The relay of an active session
orv_step "Relay of the active session"
orv_section "Relay of the active session"
typeset -a RELAYS=()
if orv_relay_peers; then
    RELAYS=($reply)
    orv_say "   INFO  relay peers (${ORV_RELAY_SOURCE}): ${(j:, :)RELAYS}"
    orv_para note "Relay peers (${ORV_RELAY_SOURCE}): ${(j:, :)RELAYS}."
    for r in $RELAYS; do
        orv_split $r 443
        if [[ $ORV_PORT == 443 ]]; then check_endpoint "Relay" $r tls; else check_endpoint "Relay" $r notls; fi
    done
    orv_split $RELAYS[1] 443; orv_hostport $ORV_HOST $ORV_PORT
    orv_valid_host $ORV_HOST && ORV_HEAD_EXTRA+=("<meta name=\"orvanta-relay\" content=\"$(orv_esc $REPLY; print -rn -- $REPLY)\" />")
else
    orv_result SKIP "No relay to check: $ORV_RELAY_SOURCE"
    orv_para note "No relay was checked: $ORV_RELAY_SOURCE."
fi

# --- Report
orv_ms_since $T0; typeset elapsed=$(( int(REPLY / 1000.0 + 0.5) ))
ORV_BODY=("<h2>All checks</h2>" "<table><thead><tr><th></th><th>Check</th></tr></thead><tbody>"
    ${(f)"$(for c in $ORV_CHECKS; do orv_esc "${c#*$'\t'}"; print -r -- "<tr><td>$(orv_badge ${c%%$'\t'*})</td><td>$REPLY</td></tr>"; done)"}
    "</tbody></table>" $ORV_BODY)
if (( ORV_FAILED )); then
    vclass=fail; vtitle="$ORV_FAILED of $(( ORV_FAILED + ORV_PASSED )) checks failed"; vlines=($ORV_FAILURES)
elif (( ORV_WARNED )); then
    vclass=warn; vtitle="Reachable: all $ORV_PASSED checks passed, with $ORV_WARNED warning(s)"; vlines=($ORV_WARNINGS)
else
    vclass=ok; vtitle="Reachable: all $ORV_PASSED checks passed"; vlines=()
fi
vlines+=("Checked in $elapsed s.")
orv_step "Writing the report"
orv_write_report OrvantaMacClientReach_ "Connector Reachability" $vclass "$vtitle" $vlines || exit 1
orv_say "   Done: $vtitle"
orv_finish $REPLY $(( ORV_FAILED ? 1 : 0 ))
