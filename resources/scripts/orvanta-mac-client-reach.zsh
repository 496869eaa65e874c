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

# --- Proxies: read before the endpoints, which are then checked directly and through each proxy as well.
# PROXY_VIA holds how curl reaches a proxy ("env" for the environment's variables, which curl reads itself, so
# that no credential appears in a command line), PROXY_LABEL what people are shown (with no credentials).
typeset -a PROXY_ON=() PROXY_VIA=() PROXY_LABEL=() PROXY_ROWS=()
proxy_row() { orv_mask "$2" "$1"; PROXY_ROWS+=("$1"$'\t'"$REPLY") }
add_proxy() { # add_proxy VIA LABEL: once per proxy, at most four
    (( ${PROXY_VIA[(Ie)$1]} || ${#PROXY_VIA} >= 4 )) && return
    PROXY_VIA+=($1); PROXY_LABEL+=($2)
}
# pac_proxies URL: the proxies a proxy auto-configuration file names, as curl proxy URLs in reply.
pac_proxies() {
    reply=()
    [[ $1 == (http|https|file)://* ]] && orv_have curl "the proxy auto-configuration file cannot be read" || return 1
    local body w i
    body=$(orv_limit $ORV_TIMEOUT curl -s --noproxy '*' --max-time $ORV_TIMEOUT --max-filesize 1000000 -- $1 2>/dev/null)
    local -a words=(${=${body//[^A-Za-z0-9.:_\[\]-]/ }}) found
    for (( i = 1; i < ${#words}; i++ )); do
        w=$words[i+1]
        orv_split $w 0
        orv_valid_host $ORV_HOST && [[ $ORV_PORT == <1-65535> ]] || continue
        case $words[i] in
        PROXY) found+=(http://$w) ;;
        HTTPS) found+=(https://$w) ;;
        SOCKS|SOCKS5) found+=(socks5h://$w) ;;
        esac
    done
    reply=(${(u)found})
    (( ${#reply} ))
}
read_proxies() {
    local v val line key out mode url host port authority env_seen=0
    # The environment's variables: curl and many other tools use them.
    for v in https_proxy HTTPS_PROXY all_proxy ALL_PROXY http_proxy HTTP_PROXY no_proxy NO_PROXY; do
        val=${(P)v}
        [[ -n $val ]] || continue
        proxy_row $v "$val"
        [[ ${(L)v} == no_proxy ]] && continue
        PROXY_ON+=($v)
        [[ ${(L)v} == (https_proxy|all_proxy) ]] && (( ! env_seen++ )) || continue # the one curl takes
        # Only a proxy with a plain host name or address is tried, so that no odd value reaches a resolver.
        authority=${${${val#*://}##*@}%%/*}
        if orv_valid_target $authority 1080; then
            orv_mask "$val"; add_proxy env "$REPLY ($v)"
        else
            PROXY_ROWS+=("$v"$'\t'"not tried: no plain host name and port in it")
        fi
    done
    if [[ $ORV_OS == Darwin ]] && orv_have scutil "the system proxy settings cannot be read"; then
        out=$(orv_limit 5 scutil --proxy 2>&1)
        local -A sc
        for line in ${(f)out}; do
            [[ $line == *\ :\ * ]] || continue
            key=${${line%% :*}##[[:space:]]#}; val=${line#*: }
            [[ $key == <-> ]] && key="exception"
            proxy_row $key "$val"
            sc[$key]=$val
        done
        for key in HTTPS SOCKS HTTP; do
            [[ $sc[${key}Enable] == 1 ]] || continue
            PROXY_ON+=($key)
            [[ $key == HTTP ]] && continue # endpoints are https
            host=$sc[${key}Proxy] port=$sc[${key}Port]
            orv_valid_target "$host:$port" 0 || continue
            orv_hostport $host $port
            if [[ $key == SOCKS ]]; then add_proxy socks5h://$REPLY "SOCKS $REPLY"; else add_proxy http://$REPLY "HTTPS proxy $REPLY"; fi
        done
        [[ $sc[ProxyAutoDiscoveryEnable] == 1 ]] && PROXY_ON+=(ProxyAutoDiscovery)
        [[ $sc[ProxyAutoConfigEnable] == 1 ]] && { PROXY_ON+=(ProxyAutoConfig); url=$sc[ProxyAutoConfigURLString] }
    elif (( $+commands[gsettings] )); then
        mode=$(orv_limit 3 gsettings get org.gnome.system.proxy mode 2>/dev/null); mode=${(Q)mode}
        if [[ -n $mode ]]; then
            proxy_row "GNOME proxy mode" "$mode"
            if [[ $mode == manual ]]; then
                PROXY_ON+=("GNOME manual")
                host=${(Q)$(orv_limit 3 gsettings get org.gnome.system.proxy.https host 2>/dev/null)}
                port=$(orv_limit 3 gsettings get org.gnome.system.proxy.https port 2>/dev/null)
                proxy_row "GNOME HTTPS proxy" "$host:$port"
                orv_valid_target "$host:$port" 0 && { orv_hostport $host $port; add_proxy http://$REPLY "HTTPS proxy $REPLY" }
            elif [[ $mode == auto ]]; then
                PROXY_ON+=("GNOME auto")
                url=${(Q)$(orv_limit 3 gsettings get org.gnome.system.proxy autoconfig-url 2>/dev/null)}
                proxy_row "GNOME configuration URL" "$url"
            fi
        fi
    fi
    if [[ -n $url ]]; then
        if pac_proxies $url; then
            local p
            orv_mask "$url"; local shown=$REPLY
            for p in $reply; do orv_mask "$p"; add_proxy $p "$REPLY (named by $shown)"; done
        else
            orv_mask "$url"
            PROXY_ROWS+=("Proxy auto-configuration"$'\t'"no proxy could be read from $REPLY")
        fi
    fi
}

# through_proxy VIA HOST PORT: a TLS handshake with HOST through the proxy; REPLY is the time or the reason.
through_proxy() {
    local via=$1 host=$2 port=$3 url out
    if orv_is_ipv6 $host; then url="https://[$host]:$port/"; else url="https://$host:$port/"; fi
    local -a cargs=(-s -k -o /dev/null -r 0-0 --max-time $ORV_TIMEOUT -w '%{http_connect} %{time_appconnect} %{errormsg}')
    [[ $via == env ]] || cargs+=(--proxy $via)
    out=$(orv_limit $(( ORV_TIMEOUT + 1 )) curl $cargs -- $url 2>/dev/null </dev/null)
    local -a w=(${=out})
    if [[ $w[2] == [0-9.]## ]] && (( w[2] > 0 )); then
        if [[ $via == env && $w[1] == 000 ]]; then REPLY="not used: NO_PROXY sends $host directly"; return 2; fi
        printf -v REPLY '%.1f ms to a finished TLS handshake' $(( w[2] * 1000.0 ))
        return 0
    fi
    orv_mask_words "${${w[3,-1]}:-no answer within ${ORV_TIMEOUT}s}"
    [[ $REPLY == *(#i)unsupported\ proxy\ syntax* ]] &&
        REPLY="the proxy setting is not a URL that curl accepts (a password's special characters must be percent-encoded)"
    [[ $w[1] == <100-599> && $w[1] != 200 ]] && REPLY="the proxy answered $w[1] ($REPLY)"
    return 1
}

# UTC time of a certificate date such as "Dec  3 09:08:38 2026 GMT", as epoch seconds.
cert_epoch() { (export TZ=UTC; strftime -r '%b %d %H:%M:%S %Y' "${1% GMT}" 2>/dev/null) }

# host_matches HOST NAMES...: the certificate names (DNS:x, IP Address:y) cover HOST; wildcards cover one label.
host_matches() {
    local host=${(L)1} n v; shift
    orv_is_ipv6 $host && { orv_ipv6_full $host; host=$REPLY }
    for n in "$@"; do
        v=${(L)${n#*:}}
        if [[ $n == IP* ]]; then
            orv_is_ipv6 $v && { orv_ipv6_full $v; v=$REPLY }
            orv_is_ip $host && [[ $v == $host ]] && return 0
        elif [[ $n == DNS:* ]]; then
            [[ $v == $host ]] && return 0
            [[ $v == \*.* && ${host#*.} == ${v#\*.} && ${host%%.*} != "" && $host == *.* ]] && return 0
        fi
    done
    return 1
}

# tls_fields OUTPUT: from s_client's output, the negotiated protocol (the session's "Protocol", not the version
# in the "New, ..., Cipher is" line, which is the cipher's minimum version; LibreSSL even prints "TLSv1/SSLv3"
# there) and the cipher, in TLS_PROTO and TLS_CIPHER.
tls_fields() {
    TLS_PROTO="" TLS_CIPHER=""
    local l fallback=""
    for l in ${(f)1}; do
        case $l in
        (#b)[[:space:]]#Protocol([[:space:]]#|\ version):\ #(*)) [[ $match[2] == (SSL|TLS)v* ]] && TLS_PROTO=$match[2] ;;
        (#b)New,\ ([^,]##),\ Cipher\ is\ (*)) TLS_CIPHER=$match[2]; [[ $match[1] == TLSv1.3 ]] && fallback=$match[1] ;; # only TLS 1.3 has suites of its own
        (#b)[[:space:]]#Cipher[[:space:]]#:\ #(*)) [[ -z $TLS_CIPHER ]] && TLS_CIPHER=$match[1] ;;
        esac
    done
    [[ $TLS_CIPHER == (0000|\(NONE\)) ]] && TLS_CIPHER=""
    [[ -n $TLS_PROTO ]] || TLS_PROTO=$fallback
}

# check_endpoint ROLE TARGET WITH-TLS: one endpoint, on every address of its name and through each proxy; its
# details go to the report. It passes when a client could connect by some path: a client tries every address
# of both families, and takes the proxy when one is set.
check_endpoint() {
    local role=$1 target=$2 with_tls=$3 host port addr t0 out rc why
    orv_split $target 443; host=$ORV_HOST; port=$ORV_PORT
    orv_esc "$role: $target"; orv_raw "<h3>$REPLY</h3>"
    orv_table "" "Check" "Result"
    ORV_BODY[-1]=${ORV_BODY[-1]/<table>/<table class=\"checks\">} # short check names stay on one line
    if ! orv_valid_target $target 443; then
        orv_result FAIL "$role $target: not a valid host name and port"
        orv_row FAIL "Target" "not a valid host name and port: $target"
        orv_table_end; return
    fi
    local -a addrs connected failed dfail
    local direct_ok=0

    t0=$EPOCHREALTIME
    if orv_is_ip $host; then
        addrs=($host)
        orv_row INFO "Name lookup" "$host is an address"
    elif orv_step "$role $host: name lookup"; orv_resolve $host; then
        addrs=($reply)
        orv_ms_since $t0
        orv_result OK "$role $host resolves to ${(j:, :)addrs} in $REPLY ms"
        orv_row OK "Name lookup" "${(j:, :)addrs} ($REPLY ms, system resolver)"
    else
        dfail+=("$host does not resolve with the system resolver")
        orv_row FAIL "Name lookup" "$host does not resolve with the system resolver"
    fi

    for addr in $addrs; do
        orv_step "$role $host: TCP connect to $addr port $port"
        if orv_tcp $addr $port; then
            connected+=($addr)
            orv_result OK "$role $host: TCP connect to $addr port $port in $REPLY ms"
            orv_row OK "TCP connect" "$addr port $port in $REPLY ms"
        else
            failed+=("TCP connect to $addr port $port failed: $REPLY")
        fi
    done
    for why in $failed; do
        if (( ${#connected} )); then # a client falls back to an address that works
            orv_result INFO "$role $host: $why (clients fall back to ${connected[1]})"
            orv_row INFO "TCP connect" "${why#TCP connect to }; clients fall back to ${connected[1]}"
        else
            dfail+=("$why")
            orv_row FAIL "TCP connect" "${why#TCP connect to }"
        fi
    done

    local tls_done=0
    if (( ${#connected} )) && [[ $with_tls != tls ]]; then
        direct_ok=1
        orv_row INFO "TLS" "not checked on port $port (the remote-desktop protocol starts TLS itself later)"
    elif (( ${#connected} )) && [[ -z $SSL_VERSION ]]; then
        direct_ok=1
        orv_result WARN "$role $host: TLS not checked (openssl missing)"
        orv_row WARN "TLS" "not checked: openssl is not installed"
    elif (( ${#connected} )); then
        addr=$connected[1]
        orv_step "$role $host: TLS handshake with $addr"
        orv_hostport $addr $port
        local -a sargs=(s_client -connect $REPLY -showcerts)
        orv_is_ip $host || sargs+=(-servername $host)
        [[ -n $ORV_CA_FILE ]] && sargs+=(-CAfile $ORV_CA_FILE)
        t0=$EPOCHREALTIME
        out=$(orv_limit $ORV_TIMEOUT openssl $sargs </dev/null 2>&1); rc=$?
        local wall; orv_ms_since $t0; wall=$REPLY
        local verify=""
        tls_fields "$out"
        [[ $out == (#b)*Verify\ return\ code:\ ([^$'\n']##)* ]] && verify=$match[1]
        if (( rc == 124 )); then
            why="the server accepted the TCP connection but did not complete the TLS handshake within ${ORV_TIMEOUT}s"
            dfail+=("$why"); orv_row FAIL "TLS handshake" "$addr: $why"
        elif [[ -z $TLS_CIPHER ]]; then
            local last=${${(M)${(f)out}:#*(error|errno|alert|refused|unexpected)*}[1]}
            why="TLS handshake failed${last:+: $last}"
            dfail+=("$why"); orv_row FAIL "TLS handshake" "$addr: $why"
        else
            direct_ok=1 tls_done=1
            local hs="$wall ms (openssl wall time, includes connect and process start)"
            if (( $+commands[curl] )); then
                local url curl_out res=$addr
                orv_is_ipv6 $addr && res="[$addr]"
                if orv_is_ip $host; then orv_hostport $host $port; url="https://$REPLY/"; else url="https://$host:$port/"; fi
                local -a cargs=(-s -k --noproxy '*' -o /dev/null -r 0-0 --max-time $ORV_TIMEOUT -w '%{time_connect} %{time_appconnect}')
                orv_is_ip $host || cargs+=(--resolve "$host:$port:$res")
                curl_out=$(orv_limit $(( ORV_TIMEOUT + 1 )) curl $cargs -- $url 2>/dev/null)
                local -a tt=(${=curl_out})
                (( ${#tt} == 2 && tt[2] > 0 )) && printf -v hs '%.1f ms' $(( (tt[2] - tt[1]) * 1000.0 ))
            fi
            orv_result OK "$role $host: ${TLS_PROTO:-protocol not reported}, $TLS_CIPHER, handshake $hs"
            orv_row OK "TLS handshake" "${TLS_PROTO:-protocol not reported}, $TLS_CIPHER, $hs"
        fi
    fi

    # Through each proxy, when one is set: the path the client takes on networks that force a proxy.
    local proxy_ok="" proxy_fail="" i
    if [[ $with_tls == tls ]] && (( ${#PROXY_VIA} )) && orv_have curl "endpoints cannot be checked through the proxy"; then
        for (( i = 1; i <= ${#PROXY_VIA}; i++ )); do
            orv_step "$role $host: through proxy $PROXY_LABEL[i]"
            if through_proxy $PROXY_VIA[i] $host $port; then
                [[ -z $proxy_ok ]] && proxy_ok=$PROXY_LABEL[i]
                orv_result INFO "$role $host: through $PROXY_LABEL[i]: $REPLY"
                orv_row OK "Through proxy" "$PROXY_LABEL[i]: $REPLY"
            elif (( $? == 2 )); then
                orv_row INFO "Through proxy" "$PROXY_LABEL[i]: $REPLY"
            else
                proxy_fail+="${proxy_fail:+; }$PROXY_LABEL[i]: $REPLY"
                orv_result INFO "$role $host: through $PROXY_LABEL[i]: failed: $REPLY"
                orv_row FAIL "Through proxy" "$PROXY_LABEL[i]: $REPLY"
            fi
        done
    fi

    if (( direct_ok )); then
        if [[ -n $proxy_ok ]]; then
            orv_result OK "$role $host: reachable directly and through $proxy_ok"
        elif [[ -n $proxy_fail ]]; then
            orv_result WARN "$role $host: reachable directly, but not through the proxy ($proxy_fail): clients that use the proxy fail"
        fi
    elif [[ -n $proxy_ok ]]; then
        for why in $dfail; do orv_result INFO "$role $host: direct path: $why"; done
        orv_result OK "$role $host: reachable through $proxy_ok only (the direct path fails)"
    else
        for why in $dfail; do orv_result FAIL "$role $host: $why"; done
        [[ -n $proxy_fail ]] && orv_result FAIL "$role $host: not reachable through the proxy either ($proxy_fail)"
    fi
    (( tls_done )) || { orv_table_end; return }

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

# --- Proxy configuration
orv_step "System proxy configuration"
orv_section "Proxy configuration"
read_proxies
orv_table "Setting" "Value"
for line in $PROXY_ROWS; do orv_row "" "${line%%$'\t'*}" "${line#*$'\t'}"; done
(( ${#PROXY_ROWS} )) || orv_row "" "Proxy" "no proxy variables or system proxy settings"
orv_table_end
if (( ${#PROXY_ON} )); then
    orv_result WARN "A proxy is configured (${(j:, :)PROXY_ON}): web traffic may not go directly to the service"
    if (( ${#PROXY_LABEL} )); then
        orv_para note "The endpoints are checked directly and through ${(j:, :)PROXY_LABEL}."
    else
        orv_para note "No proxy address could be read from these settings: the endpoints are checked directly only."
    fi
else
    orv_result OK "No system proxy is configured"
fi

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
    if orv_valid_host $ORV_HOST; then orv_esc $REPLY; ORV_HEAD_EXTRA+=("<meta name=\"orvanta-relay\" content=\"$REPLY\" />"); fi
else
    orv_result SKIP "No relay to check: $ORV_RELAY_SOURCE"
    orv_para note "No relay was checked: $ORV_RELAY_SOURCE."
fi

# --- Report
orv_ms_since $T0; typeset elapsed=$(( int(REPLY / 1000.0 + 0.5) ))
typeset -a summary=("<h2>All checks</h2>" "<table><thead><tr><th></th><th>Check</th></tr></thead><tbody>")
for c in $ORV_CHECKS; do
    orv_esc "${c#*$'\t'}"; typeset text=$REPLY
    orv_badge ${c%%$'\t'*}; summary+=("<tr><td>$REPLY</td><td>$text</td></tr>")
done
ORV_BODY=($summary "</tbody></table>" $ORV_BODY)
# A failing verdict keeps its warnings: an expiring certificate or a proxy matters as much then.
typeset -a vlines=()
for c in $ORV_FAILURES; do vlines+=("FAIL"$'\t'"$c"); done
for c in $ORV_WARNINGS; do vlines+=("WARN"$'\t'"$c"); done
if (( ORV_FAILED )); then
    vclass=fail; vtitle="$ORV_FAILED of $(( ORV_FAILED + ORV_PASSED )) checks failed"
    (( ORV_WARNED )) && vtitle+=", with $ORV_WARNED warning(s)"
elif (( ORV_WARNED )); then
    vclass=warn; vtitle="Reachable: all $ORV_PASSED checks passed, with $ORV_WARNED warning(s)"
else
    vclass=ok; vtitle="Reachable: all $ORV_PASSED checks passed"
fi
vlines+=("Checked in $elapsed s.")
orv_step "Writing the report"
orv_write_report OrvantaMacClientReach_ "Connector Reachability" $vclass "$vtitle" $vlines || exit 1
orv_say "   Done: $vtitle"
orv_finish $REPLY $(( ORV_FAILED ? 1 : 0 ))
