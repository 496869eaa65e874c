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
orv_have curl "connections are not timed phase by phase (DNS, connect, TLS, first byte), and the front end's HTTP answer is not checked"

# --- Proxies: read before the endpoints, which are then checked directly and through each proxy as well.
# PROXY_VIA holds how curl reaches a proxy ("env" for the environment's variables, which curl reads itself, so
# that no credential appears in a command line), PROXY_LABEL what people are shown (with no credentials).
typeset -a PROXY_ON=() PROXY_VIA=() PROXY_LABEL=() PROXY_ROWS=()
typeset -g PROXY_ENV_ADDR="" # host:port of the environment's proxy when it speaks plain HTTP CONNECT
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
            [[ $val == (#i)http://* || $val != *://* ]] && PROXY_ENV_ADDR=$authority
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

# --- Where the problem lies, for the closing advice: every cause met, separately for failures and warnings.
typeset -gA CAUSE_FAIL=() CAUSE_WARN=()
typeset -gi UNREACHED=0 CHECKED=0
note_cause() { if [[ $1 == fail ]]; then CAUSE_FAIL[$2]=1; else CAUSE_WARN[$2]=1; fi }

# What to do about each kind of failure, shown beside it under the verdict, and the cause it gives the closing
# advice. A refusal is the host's own answer, so the way there works; silence is what a filtering firewall gives.
typeset -gA STEP_TEXT=(
    dns "This Mac cannot look up the name: check the network's DNS settings (or ask its administrator), then run this check again."
    refused "Refused means the host answered: nothing listens on that port, or the service there is down. Check that the port is the right one; if it is, send this report to support."
    dropped "No answer at all: packets to that port are dropped on the way (a firewall filters it) or the host is down. Send this report to your network administrator, and to support if other networks cannot reach it either."
    unreachable "This Mac has no route to that address: check its network connection (Wi-Fi, cable, VPN), then run this check again."
    handshake "The connection opened but the encrypted handshake did not finish: a firewall or proxy that inspects traffic, or the service itself, stops it. Send this report to your network administrator, and to support if nothing is found there."
    certificate "This Mac does not trust the certificate it was shown: if this network inspects encrypted traffic, ask its administrator to exempt the service; otherwise send this report to support."
    renew "The service's certificate is one that macOS refuses: send this report to support so that it is replaced."
    clock "This Mac's date or time is wrong, so valid certificates look invalid: turn on setting the date and time automatically in System Settings, then run this check again."
    service "The fault is on the service's side: send this report to support."
    proxy "The proxy of this network does not let the service through: send this report to your network administrator and ask for the service to be allowed."
    target "This is not a valid host name and port, so nothing was checked: correct it where it is set (ORVANTA_ENDPOINTS, ORVANTA_RELAY), or send this report to support."
)
typeset -gA STEP_CAUSE=(dns dns refused refused dropped tcp unreachable tcp handshake handshake certificate certificate
    renew service clock clock service service proxy proxy)
typeset -ga FAIL_STEPS   # beside ORV_FAILURES, one each
# fail KIND TEXT: a failed check of that kind.
fail() {
    orv_result FAIL "$2"
    FAIL_STEPS+=("$STEP_TEXT[$1]")
    [[ -n $STEP_CAUSE[$1] ]] && note_cause fail $STEP_CAUSE[$1]
    return 0
}

# timing_stop LABEL ADDRESSES DNS-MS CONNECT-MS PHASE SHORT WHY: a row of the phase table for an endpoint that
# stopped at PHASE (1 DNS, 2 connect, 3 TLS, 4 first byte), with the times of the phases before it and, in the
# phase's own cell, SHORT.
timing_stop() {
    local -a cells=("$3" "$4" "" "" "")
    cells[$5]=$6
    cells=("${(@)cells[1,$5]}" "" "" "" "")
    TIMING_ROWS+=("$1"$'\t'"${2:--}"$'\t'"${(pj:\t:)cells[1,5]}"$'\t'""$'\t'"$5"$'\t'"$7")
}

# http_timing HOST PORT ROLE: one HTTPS request made as a client makes it (the system resolver, each address in
# turn, no proxy), timed by curl's own clock. TIMING holds DNS, connect, TLS, first byte (each phase alone) and
# total, in ms; HTTP_CODE the status (000 for none); HTTP_IP the address used. Each timed endpoint adds a row to
# TIMING_ROWS for the report's overview. Status 1, with TIMING_WHY the reason, when no TLS session was made.
typeset -ga TIMING TIMING_ROWS
typeset -g HTTP_CODE HTTP_IP TIMING_WHY
http_timing() {
    local host=$1 port=$2 role=$3 url out
    TIMING=() HTTP_CODE=000 HTTP_IP="" TIMING_WHY=""
    orv_have curl "connections cannot be timed phase by phase (DNS, connect, TLS, first byte)" || { TIMING_WHY="curl is missing"; return 1 }
    if orv_is_ipv6 $host; then url="https://[$host]:$port/"; else url="https://$host:$port/"; fi
    out=$(orv_limit $(( ORV_TIMEOUT + 1 )) curl -s -k --noproxy '*' -o /dev/null --max-time $ORV_TIMEOUT \
        -w '%{time_namelookup}|%{time_connect}|%{time_appconnect}|%{time_starttransfer}|%{time_total}|%{http_code}|%{remote_ip}|%{errormsg}' \
        -- $url 2>/dev/null </dev/null)
    local -a w=("${(@s:|:)out}")
    HTTP_CODE=${w[6]:-000} HTTP_IP=$w[7]
    local v
    for v in $w[1,5]; do [[ $v == [0-9.]## ]] || { TIMING_WHY="curl gave no times (no answer within ${ORV_TIMEOUT}s?)"; return 1 } done
    if (( w[3] <= 0 )); then
        orv_mask_words "${(j:|:)w[8,-1]}"; TIMING_WHY=${REPLY:-no TLS session within ${ORV_TIMEOUT}s}; return 1
    fi
    # curl's times run from the start; each phase is the difference to the one before.
    local -F nl=$w[1] c=$w[2] a=$w[3] st=$w[4] tot=$w[5]
    local -a ph=($nl $(( c - nl )) $(( a - c )) $(( st > 0 ? st - a : -1 )) $tot)
    for v in $ph; do
        if (( v < 0 )); then TIMING+=(""); else printf -v REPLY '%.1f' $(( v * 1000.0 )); TIMING+=($REPLY); fi
    done
    orv_is_ip $host && TIMING[1]=""
    TIMING_ROWS+=("$role $EP_NAME"$'\t'"$HTTP_IP"$'\t'"${(pj:\t:)TIMING}"$'\t'"$HTTP_CODE"$'\t'""$'\t'"")
    return 0
}

# http_rows ROLE HOST: the timing and the HTTP answer as rows and results. The front end's status is judged
# (a server error there stops every sign-in); other endpoints need not answer a plain request.
http_rows() {
    local role=$1 host=$2 t
    (( ${#TIMING} )) || { orv_row INFO "Timing" "not measured: $TIMING_WHY"; return }
    local -a names=("DNS" "connect" "TLS" "first byte" "total") parts
    local i
    for (( i = 1; i <= 5; i++ )); do
        if [[ -n $TIMING[i] ]]; then parts+=("$names[i] $TIMING[i] ms")
        elif (( i == 1 )); then parts+=("DNS none (an address)")
        else parts+=("$names[i] -"); fi
    done
    t="${(j:, :)parts} (to ${HTTP_IP:-?})"
    orv_say "   INFO  $role $EP_NAME: $t"
    orv_row INFO "Timing" "$t"
    if [[ $HTTP_CODE == 000 ]]; then
        if [[ $role == "Front end" ]]; then
            fail service "$role $EP_NAME: no HTTP answer within ${ORV_TIMEOUT}s after the TLS handshake"
            local -a f=("${(@ps:\t:)TIMING_ROWS[-1]}")
            f[6]="no answer" f[9]=4 f[10]="no HTTP answer within ${ORV_TIMEOUT}s after the TLS handshake"
            TIMING_ROWS[-1]=${(pj:\t:)f}
            orv_row FAIL "HTTP" "no answer within ${ORV_TIMEOUT}s after the TLS handshake"
        else
            orv_row INFO "HTTP" "no answer to a plain request"
        fi
    elif [[ $role == "Front end" && $HTTP_CODE == 5<-> ]]; then
        fail service "$role $EP_NAME: answers HTTP $HTTP_CODE (an error on the service's side)"
        orv_row FAIL "HTTP" "$HTTP_CODE: an error on the service's side"
    elif [[ $role == "Front end" ]]; then
        orv_result OK "$role $EP_NAME: answers HTTP $HTTP_CODE"
        orv_row OK "HTTP" "$HTTP_CODE"
    else
        orv_row INFO "HTTP" "$HTTP_CODE"
    fi
}

# tls_versions ADDR HOST PORT ROLE: which protocol versions the server accepts, one handshake each. TLS 1.2 and
# 1.3 are what clients use; 1.0 and 1.1 are retired and a server still accepting them is a warning.
tls_versions() {
    local addr=$1 host=$2 port=$3 role=$4 v out rc
    local -a yes no untested
    local -A flag=(1.3 -tls1_3 1.2 -tls1_2 1.1 -tls1_1 1.0 -tls1)
    orv_hostport $addr $port; local hp=$REPLY
    for v in 1.3 1.2 1.1 1.0; do
        local -a a=(s_client -connect $hp $flag[$v])
        orv_is_ip $host || a+=(-servername $host)
        # OpenSSL 3 itself refuses the old versions at its default security level; the question is the server's.
        [[ $v == 1.[01] && $SSL_VERSION == OpenSSL* ]] && a+=(-cipher 'DEFAULT:@SECLEVEL=0')
        out=$(orv_limit $ORV_TIMEOUT openssl $a </dev/null 2>&1); rc=$?
        tls_fields "$out"
        if [[ -n $TLS_CIPHER ]]; then yes+=("TLS $v")
        elif (( rc == 124 )) || [[ $out == *(#i)(unknown option|no protocols available|unsupported protocol|null ssl method)* ]]; then untested+=("TLS $v")
        else no+=("TLS $v"); fi
    done
    local t="accepts ${(j:, :)yes:-none}${no:+; refuses ${(j:, :)no}}${untested:+; not tested (${SSL_VERSION%% *} cannot offer it, or no answer): ${(j:, :)untested}}"
    local -a old=(${(M)yes:#TLS 1.[01]})
    if [[ -z ${(M)yes:#TLS 1.[23]} ]]; then
        fail service "$role $EP_NAME: accepts neither TLS 1.2 nor TLS 1.3 ($t)"
        orv_row FAIL "TLS versions" "$t: clients need TLS 1.2 or later"
    elif (( ${#old} )); then
        orv_result WARN "$role $EP_NAME: still accepts ${(j: and :)old}, retired versions ($t)"
        orv_row WARN "TLS versions" "$t: TLS 1.0 and 1.1 are retired and should be turned off"
        note_cause warn legacy
    else
        orv_result OK "$role $EP_NAME: TLS versions: $t"
        orv_row OK "TLS versions" "$t"
    fi
}

# check_endpoint ROLE TARGET WITH-TLS: one endpoint, on every address of its name and through each proxy; its
# details go to the report. It passes when a client could connect by some path: a client tries every address
# of both families, and takes the proxy when one is set. EP_NAME is how the endpoint is named in every line about
# it: with its port wherever that is not HTTPS's own, so that two services on one host stay apart.
typeset -g EP_NAME
check_endpoint() {
    local role=$1 target=$2 with_tls=$3 host port addr t0 out rc why
    orv_split $target 443; host=$ORV_HOST; port=$ORV_PORT
    EP_NAME=$target
    if ! orv_valid_target $target 443; then
        orv_esc "$role $target"; orv_raw "<h3>$REPLY</h3>"
        orv_table "" "Check" "Result"
        fail target "$role $target: not a valid host name and port"
        orv_row FAIL "Target" "not a valid host name and port: $target"
        orv_table_end; return
    fi
    EP_NAME=$host; [[ $port == 443 ]] || { orv_hostport $host $port; EP_NAME=$REPLY }
    orv_esc "$role $EP_NAME"; orv_raw "<h3>$REPLY</h3>"
    orv_table "" "Check" "Result"
    ORV_BODY[-1]=${ORV_BODY[-1]/<table>/<table class=\"checks\">} # short check names stay on one line
    # dfail: why the direct path failed, each "KIND<tab>text"; stop: the phase it stopped at, for the phase table.
    local -a addrs connected failed dfail stop
    local direct_ok=0 answered=0 dns_ms="" conn_ms="" kind
    [[ $role == Relay ]] || (( CHECKED++ ))

    t0=$EPOCHREALTIME
    if orv_is_ip $host; then
        addrs=($host)
        orv_row INFO "Name lookup" "$host is an address"
    elif orv_step "$role $EP_NAME: name lookup"; orv_resolve $host; then
        addrs=($reply)
        orv_ms_since $t0; dns_ms=$REPLY
        orv_result OK "$role $EP_NAME resolves to ${(j:, :)addrs} in $REPLY ms"
        orv_row OK "Name lookup" "${(j:, :)addrs} ($REPLY ms, system resolver)"
    else
        why="$host does not resolve with the system resolver"
        dfail+=("dns"$'\t'"$why"); stop=(1 "not found" "$why")
        orv_row FAIL "Name lookup" "$why"
    fi

    for addr in $addrs; do
        orv_step "$role $EP_NAME: TCP connect to $addr port $port"
        if orv_tcp $addr $port; then
            connected+=($addr)
            printf -v REPLY '%.1f' $REPLY; [[ -n $conn_ms ]] || conn_ms=$REPLY
            orv_result OK "$role $EP_NAME: TCP connect to $addr port $port in $REPLY ms"
            orv_row OK "TCP connect" "$addr port $port in $REPLY ms"
        else
            case $? in
            1) kind=refused answered=1 ;;
            124) kind=dropped ;;
            2) kind=unreachable ;;
            *) kind="" ;;
            esac
            failed+=("$kind"$'\t'"TCP connect to $addr port $port failed: $REPLY")
        fi
    done
    for why in $failed; do
        if (( ${#connected} )); then # a client falls back to an address that works
            orv_result INFO "$role $EP_NAME: ${why#*$'\t'} (clients fall back to ${connected[1]})"
            orv_row INFO "TCP connect" "${${why#*$'\t'}#TCP connect to }; clients fall back to ${connected[1]}"
        else
            dfail+=("$why")
            if (( ! ${#stop} )); then
                case ${why%%$'\t'*} in
                refused|unreachable) kind=${why%%$'\t'*} ;;
                dropped) kind="no answer" ;;
                *) kind=failed ;;
                esac
                stop=(2 "$kind" "${why#*failed: }")
            fi
            orv_row FAIL "TCP connect" "${${why#*$'\t'}#TCP connect to }"
        fi
    done

    local tls_done=0
    if (( ${#connected} )) && [[ $with_tls != tls ]]; then
        direct_ok=1
        orv_row INFO "TLS" "not checked on port $port (the remote-desktop protocol starts TLS itself later)"
    elif (( ${#connected} )) && [[ -z $SSL_VERSION ]]; then
        direct_ok=1
        orv_result WARN "$role $EP_NAME: TLS not checked (openssl missing)"
        orv_row WARN "TLS" "not checked: openssl is not installed"
    elif (( ${#connected} )); then
        addr=$connected[1]
        orv_step "$role $EP_NAME: TLS handshake with $addr"
        orv_hostport $addr $port
        local -a sargs=(s_client -connect $REPLY -showcerts -status)
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
            dfail+=("handshake"$'\t'"$why"); orv_row FAIL "TLS handshake" "$addr: $why"; answered=1
            stop=(3 "no answer" "$why")
        elif [[ -z $TLS_CIPHER ]]; then
            local -a said=(${(M)${(f)out}:#*(error|errno|alert|refused|unexpected)*})
            local last=$said[1]
            why="TLS handshake failed${last:+: $last}"
            dfail+=("handshake"$'\t'"$why"); orv_row FAIL "TLS handshake" "$addr: $why"; answered=1
            stop=(3 failed "$why")
        else
            direct_ok=1 tls_done=1
            local proto=${TLS_PROTO:-protocol not reported} cipher=$TLS_CIPHER hs="$wall ms (openssl wall time, includes connect and process start)"
            http_timing $host $port $role && [[ -n $TIMING[3] ]] && hs="$TIMING[3] ms"
            orv_result OK "$role $EP_NAME: $proto, $cipher, handshake $hs"
            orv_row OK "TLS handshake" "$proto, $cipher, $hs"
            http_rows $role $host
            tls_versions $addr $host $port $role
        fi
    fi

    # Through each proxy, when one is set: the path the client takes on networks that force a proxy.
    local proxy_ok="" proxy_via="" proxy_fail="" i
    if [[ $with_tls == tls ]] && (( ${#PROXY_VIA} )) && orv_have curl "endpoints cannot be checked through the proxy"; then
        for (( i = 1; i <= ${#PROXY_VIA}; i++ )); do
            orv_step "$role $EP_NAME: through proxy $PROXY_LABEL[i]"
            if through_proxy $PROXY_VIA[i] $host $port; then
                [[ -z $proxy_ok ]] && { proxy_ok=$PROXY_LABEL[i]; proxy_via=$PROXY_VIA[i] }
                orv_result INFO "$role $EP_NAME: through $PROXY_LABEL[i]: $REPLY"
                orv_row OK "Through proxy" "$PROXY_LABEL[i]: $REPLY"
            elif (( $? == 2 )); then
                orv_row INFO "Through proxy" "$PROXY_LABEL[i]: $REPLY"
            else
                proxy_fail+="${proxy_fail:+; }$PROXY_LABEL[i]: $REPLY"
                orv_result INFO "$role $EP_NAME: through $PROXY_LABEL[i]: failed: $REPLY"
                orv_row FAIL "Through proxy" "$PROXY_LABEL[i]: $REPLY"
            fi
        done
    fi

    if (( direct_ok )); then
        if [[ -n $proxy_ok ]]; then
            orv_result OK "$role $EP_NAME: reachable directly and through $proxy_ok"
        elif [[ -n $proxy_fail ]]; then
            orv_result WARN "$role $EP_NAME: reachable directly, but not through the proxy ($proxy_fail): clients that use the proxy fail"
            note_cause warn proxy
        fi
    elif [[ -n $proxy_ok ]]; then
        for why in $dfail; do orv_result INFO "$role $EP_NAME: direct path: ${why#*$'\t'}"; done
        orv_result OK "$role $EP_NAME: reachable through $proxy_ok only (the direct path fails)"
    else
        for why in $dfail; do fail "${why%%$'\t'*}" "$role $EP_NAME: ${why#*$'\t'}"; done
        if [[ -n $proxy_fail ]]; then
            fail proxy "$role $EP_NAME: not reachable through the proxy either ($proxy_fail)"
        fi
        # Nothing reached at all counts against the local side; a host that refused, or took the connection but
        # not the handshake, proves that the network works.
        [[ $role == Relay ]] || (( answered )) || (( UNREACHED++ ))
    fi
    # The direct path's stop in the phase table, beside the endpoints that were timed.
    [[ $with_tls == tls ]] && (( ${#stop} )) && timing_stop "$role $EP_NAME" "${(j:, :)${connected:-$addrs}}" "${dns_ms:-}" "$conn_ms" $stop
    # Where only a proxy gets through, the certificate is the one that path shows: a proxy that inspects TLS
    # puts its own there, which is what the client then meets.
    if (( ! tls_done )) && [[ -n $proxy_via && -n $SSL_VERSION ]]; then
        local paddr="" verify=""
        case $proxy_via in
        env) paddr=$PROXY_ENV_ADDR ;;
        http://*) paddr=${proxy_via#http://} ;;
        esac
        if [[ -n $paddr ]]; then
            orv_step "$role $EP_NAME: certificate through $proxy_ok"
            orv_hostport $host $port
            local -a pargs=(s_client -proxy $paddr -connect $REPLY -showcerts -status)
            orv_is_ip $host || pargs+=(-servername $host)
            [[ -n $ORV_CA_FILE ]] && pargs+=(-CAfile $ORV_CA_FILE)
            out=$(orv_limit $ORV_TIMEOUT openssl $pargs </dev/null 2>&1)
            tls_fields "$out"
            if [[ -n $TLS_CIPHER ]]; then
                [[ $out == (#b)*Verify\ return\ code:\ ([^$'\n']##)* ]] && verify=$match[1]
                orv_row INFO "Certificate" "as seen through $proxy_ok, ${TLS_PROTO:-protocol not reported}, $TLS_CIPHER"
                judge_certificate $role $host "$out" "$verify"
            else
                orv_row INFO "Certificate" "not checked: ${SSL_VERSION%% *} could not connect through $proxy_ok"
            fi
        else
            orv_row INFO "Certificate" "not checked: ${SSL_VERSION%% *} cannot connect through $proxy_ok"
        fi
    fi
    (( tls_done )) || { orv_table_end; return }

    judge_certificate $role $host "$out" "$verify"
    orv_table_end
}

# cert_field TEXT LABEL: REPLY is the rest of the first line of x509 -text output that starts with LABEL, or of
# the line after it when LABEL ends its own line (the extensions print their values below their names).
cert_field() {
    local -a l=(${(f)1}); local i
    REPLY=""
    for (( i = 1; i <= ${#l}; i++ )); do
        [[ ${l[i]##[[:space:]]#} == $2* ]] || continue
        REPLY=${${l[i]##[[:space:]]#}#$2}; REPLY=${REPLY## #}
        [[ -z $REPLY || $REPLY == critical ]] && REPLY=${l[i+1]##[[:space:]]#}
        return 0
    done
    return 1
}

# judge_certificate ROLE HOST S_CLIENT-OUTPUT VERIFY-RESULT: shows the certificate as testssl.sh does first
# (subject, the chain of issuers, the validity dates, the SHA-256 fingerprint, the names), then judges the chain
# the server sent as a Mac would: the name among the subject alternative names, the validity period, key,
# signature algorithms, the purpose, the chain to a trusted root and the stapled revocation status. Rows go to the
# open table.
judge_certificate() {
    local role=$1 host=$2 out=$3 verify=$4 i f
    local pem=$WORK/chain.pem leaf=$WORK/leaf.pem
    rm -f $WORK/c<->.pem(N)
    awk '/-----BEGIN CERTIFICATE-----/{on=1} on{print} /-----END CERTIFICATE-----/{on=0}' <<<"$out" > $pem
    awk -v dir=$WORK 'BEGIN{n=0} /-----BEGIN CERTIFICATE-----/{n++; f=dir "/c" n ".pem"} n{print > f} /-----END CERTIFICATE-----/{close(f)}' $pem
    cp $WORK/c1.pem $leaf 2>/dev/null || : > $leaf
    local text subject issuer not_after not_before san l start end
    text=$(openssl x509 -in $leaf -noout -text 2>/dev/null)
    for l in ${(f)"$(openssl x509 -in $leaf -noout -subject -issuer -startdate -enddate -nameopt utf8,sep_comma_plus_space,esc_ctrl 2>/dev/null)"}; do
        case $l in
        subject=*) subject=${l#subject=} ;;
        issuer=*) issuer=${l#issuer=} ;;
        notBefore=*) not_before=${l#notBefore=} ;;
        notAfter=*) not_after=${l#notAfter=} ;;
        esac
    done
    if [[ -z $text ]]; then
        fail service "$role $EP_NAME: the server sent no readable certificate"
        orv_row FAIL "Certificate" "none readable"
        return
    fi
    cert_field "$text" "X509v3 Subject Alternative Name:" && san=$REPLY
    local -a names=(${(s:, :)san}) listed
    # OpenSSL writes IPv6 names in full ("0:0:0:0:0:0:0:1"); people and testssl.sh read the short form.
    for l in $names; do
        [[ $l == IP\ Address:* ]] && orv_is_ipv6 ${l#*:} && { orv_ipv6_short ${l#*:}; l="IP Address:$REPLY" }
        listed+=($l)
    done
    # The chain as sent, from the server's own certificate up: each one's issuer, and a new line of descent where
    # a certificate does not issue the one before it.
    local chain="" last="" csub ciss
    local -a sent=($WORK/c<->.pem(Nn))
    for f in $sent; do
        csub="" ciss=""
        for l in ${(f)"$(openssl x509 -in $f -noout -subject -issuer -nameopt utf8,sep_comma_plus_space,esc_ctrl 2>/dev/null)"}; do
            case $l in
            subject=*) csub=${l#subject=} ;;
            issuer=*) ciss=${l#issuer=} ;;
            esac
        done
        [[ -n $csub ]] || continue
        if [[ -n $chain && $csub == $last ]]; then chain+=" ← $ciss"; else chain+="${chain:+; }$csub ← $ciss"; fi
        last=$ciss
    done
    local fp=${"$(openssl x509 -in $leaf -noout -fingerprint -sha256 2>/dev/null)"#*=}
    local start_text="" end_text=""
    start=$(cert_epoch $not_before); end=$(cert_epoch $not_after)
    [[ $start == <-> ]] && start_text=$(TZ=UTC strftime '%Y-%m-%d %H:%M:%S UTC' $start)
    [[ $end == <-> ]] && end_text=$(TZ=UTC strftime '%Y-%m-%d %H:%M:%S UTC' $end)
    orv_row INFO "Subject" "$subject"
    orv_row INFO "Issuer chain" "${chain:-$subject ← $issuer} (${#sent} certificate(s) sent)"
    orv_row INFO "Valid" "from ${start_text:-$not_before} to ${end_text:-$not_after}"
    orv_row INFO "SHA-256 fingerprint" "${fp:-not reported}"
    orv_row INFO "Names" "${${(j:, :)listed}:-none (no subject alternative names)}"

    # Name: macOS reads only the subject alternative names, never the common name.
    if orv_is_ip $host && [[ $role == Relay* ]]; then
        orv_row INFO "Name match" "not checked: the relay is known only by its address"
    elif host_matches $host $names; then
        orv_result OK "$role $EP_NAME: the certificate names the host"
        orv_row OK "Name match" "$host is covered by the certificate"
    elif (( ! ${#names} )); then
        fail renew "$role $EP_NAME: the certificate has no subject alternative names, which macOS requires"
        orv_row FAIL "Name match" "no subject alternative names: macOS ignores the common name and refuses the certificate"
    else
        fail certificate "$role $EP_NAME: the certificate does not name $host"
        orv_row FAIL "Name match" "$host is not among the certificate's names (a TLS-inspecting proxy or a wrong server?)"
    fi

    # Validity: days left, and the lifetime macOS accepts for a server certificate (825 days at most, 398 for
    # one from a public authority).
    local days life
    if [[ $end == <-> && $start == <-> ]]; then
        days=$(( (end - EPOCHSECONDS) / 86400 )) life=$(( (end - start) / 86400 ))
        if (( end < EPOCHSECONDS )); then
            fail renew "$role $EP_NAME: the certificate expired on $not_after"
            orv_row FAIL "Expiry" "expired on $not_after"
        elif (( start > EPOCHSECONDS )); then
            fail clock "$role $EP_NAME: the certificate is not valid before $not_before (is this Mac's clock right?)"
            orv_row FAIL "Expiry" "not valid before $not_before: check this Mac's date and time"
        elif (( days < 30 )); then
            orv_result WARN "$role $EP_NAME: the certificate expires in $days days ($not_after)"
            orv_row WARN "Expiry" "$not_after, $days days left"
            note_cause warn renew
        else
            orv_result OK "$role $EP_NAME: the certificate is valid for $days more days"
            orv_row OK "Expiry" "$not_after, $days days left"
        fi
        if (( life > 825 )); then
            fail renew "$role $EP_NAME: the certificate is valid for $life days in all; macOS refuses more than 825"
            orv_row FAIL "Lifetime" "$life days from $not_before: macOS refuses server certificates valid for more than 825 days"
        elif (( life > 398 )); then
            orv_row WARN "Lifetime" "$life days: macOS accepts more than 398 days only from a private authority"
            orv_result WARN "$role $EP_NAME: the certificate is valid for $life days in all (over 398)"
        fi
    else
        orv_row WARN "Expiry" "cannot read the dates: $not_before to $not_after"
    fi

    # Key: macOS refuses RSA keys under 2048 bits.
    local kalg bits=0 curve=""
    cert_field "$text" "Public Key Algorithm:" && kalg=$REPLY
    [[ $text == (#b)*Public-Key:\ \(([0-9]##)\ bit\)* ]] && bits=$match[1]
    cert_field "$text" "NIST CURVE:" && curve=$REPLY
    [[ -z $curve ]] && cert_field "$text" "ASN1 OID:" && curve=$REPLY
    case $kalg in
    rsa*|id-ecPublicKey)
        local kind=RSA shown least=2048
        [[ $kalg == id-ecPublicKey ]] && { kind=EC; least=256 }
        shown="$kind $bits bits${${kind:#RSA}:+${curve:+ ($curve)}}"
        if (( bits < least )); then
            fail renew "$role $EP_NAME: the certificate's key is $shown; macOS requires $least bits or more"
            orv_row FAIL "Key" "$shown: macOS requires at least $least bits"
        else
            orv_row OK "Key" "$shown"
        fi ;;
    *) orv_row INFO "Key" "${kalg:-not reported}${${bits:#0}:+, $bits bits}" ;;
    esac

    # Signatures: every certificate but a self-signed root, whose own signature nobody checks.
    local sig weak="" sigs="" subj iss
    for f in $WORK/c<->.pem(Nn); do
        l=$(openssl x509 -in $f -noout -subject -issuer -text 2>/dev/null)
        subj=${${(M)${(f)l}:#subject=*}#subject=}; iss=${${(M)${(f)l}:#issuer=*}#issuer=}
        [[ $f != $WORK/c1.pem && $subj == $iss ]] && continue
        cert_field "$l" "Signature Algorithm:"; sig=$REPLY
        [[ -n $sig ]] || continue
        [[ $sigs == *$sig* ]] || sigs+="${sigs:+, }$sig"
        [[ $sig == (#i)*(sha1|md5|md2)* ]] && weak+="${weak:+; }$sig in ${subj## #}"
    done
    if [[ -n $weak ]]; then
        fail renew "$role $EP_NAME: a certificate of the chain is signed with a broken hash ($weak)"
        orv_row FAIL "Signature" "$weak: SHA-1 and MD5 signatures are refused"
    else
        orv_row OK "Signature" "${sigs:-not reported}"
    fi

    # Purpose: macOS requires the extended key usage to name server authentication.
    local eku=""
    cert_field "$text" "X509v3 Extended Key Usage:" && eku=$REPLY
    if [[ $eku == *"TLS Web Server Authentication"* || $eku == *serverAuth* ]]; then
        orv_row OK "Purpose" "$eku"
    else
        fail renew "$role $EP_NAME: the certificate is not marked for server authentication, which macOS requires"
        orv_row FAIL "Purpose" "${eku:-no extended key usage}: macOS requires TLS Web Server Authentication"
    fi

    # Chain: the TLS library's verdict, and on macOS the Keychain's, which is what the client trusts.
    local chain_ok=0 chain_text="${SSL_VERSION%% *} verification: ${verify:-no result}"
    [[ $verify == 0\ * ]] && chain_ok=1
    if [[ $ORV_OS == Darwin && -z $ORV_CA_FILE ]] && orv_have security; then
        local -a vargs=(verify-cert -p ssl -L -q)
        for i in $WORK/c<->.pem(Nn); do vargs+=(-c $i); done
        orv_is_ip $host || vargs+=(-s $host)
        if orv_limit $ORV_TIMEOUT security $vargs >/dev/null 2>&1; then
            chain_ok=1; chain_text+="; macOS Keychain trust: trusted"
        else
            chain_ok=0; chain_text+="; macOS Keychain trust: NOT trusted"
        fi
    fi
    if (( chain_ok )); then
        orv_result OK "$role $EP_NAME: certificate chain verified"
        orv_row OK "Chain" "$chain_text"
    else
        fail certificate "$role $EP_NAME: certificate chain not trusted ($chain_text)"
        orv_row FAIL "Chain" "$chain_text"
    fi

    # Revocation: a stapled OCSP answer saves the client a query to the authority; a certificate marked
    # "must staple" is refused without one.
    local staple must=0 cstat=""
    cert_field "$text" "TLS Feature:" && [[ $REPLY == *status_request* ]] && must=1
    [[ $out == (#b)*Cert\ Status:\ ([a-z]##)* ]] && cstat=$match[1]
    if [[ $out == *"OCSP Response Status: successful"* ]]; then
        if [[ $cstat == revoked ]]; then
            fail renew "$role $EP_NAME: the stapled OCSP answer says the certificate is revoked"
            orv_row FAIL "OCSP stapling" "stapled: revoked"
        else
            orv_row OK "OCSP stapling" "stapled (status: ${cstat:-not given})"
        fi
    elif [[ $out == *"OCSP response: no response sent"* ]]; then
        staple="not stapled: the client asks the authority itself"
        if (( must )); then
            fail renew "$role $EP_NAME: the certificate requires OCSP stapling, but none was sent"
            orv_row FAIL "OCSP stapling" "not stapled, but the certificate requires it (must staple)"
        else
            orv_row INFO "OCSP stapling" "$staple"
        fi
    else
        orv_row INFO "OCSP stapling" "not reported by ${SSL_VERSION%% *}"
    fi
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
typeset -i TIMING_AT=${#ORV_BODY}
typeset -a ENDPOINTS=(${=ORV_ENDPOINTS})
typeset -i k=0
for ep in $ENDPOINTS; do
    (( k++ ))
    role="Endpoint"; [[ $ep == $ORV_FRONTEND ]] && role="Front end"
    check_endpoint "$role" $ep tls
done
(( k == 0 )) && { fail target "No endpoints to check: ORVANTA_ENDPOINTS is empty"; orv_para note "No endpoints were configured." }

# --- The connector process
orv_step "Process '$ORV_CONNECTOR_PROCESS'"
orv_section "Orvanta Mac Connector"
if orv_pids $ORV_CONNECTOR_PROCESS; then
    orv_result OK "'$ORV_CONNECTOR_PROCESS' is running (process ${(j:, :)reply})"
    orv_para "" "'$ORV_CONNECTOR_PROCESS' is running as process ${(j:, :)reply}."
else
    orv_result WARN "'$ORV_CONNECTOR_PROCESS' is not running"
    note_cause warn client
    orv_para "" "'$ORV_CONNECTOR_PROCESS' is not running. Start it before connecting to an Orvanta session."
fi

# --- The relay of an active session
orv_step "Relay of the active session"
orv_section "Relay of the active session"
typeset -a RELAYS=() f
typeset row="" c=""
typeset -i i
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

# --- Timings side by side, under the endpoints' heading: each phase as a figure and as a bar on one scale. An
# endpoint that stopped shows the phase it stopped at, and why, where its bars would be.
if (( ${#TIMING_ROWS} )); then
    typeset -F scale=0
    typeset -a phase_names=(DNS connect TLS "first byte")
    for line in $TIMING_ROWS; do f=("${(@ps:\t:)line}"); [[ -z $f[9] ]] && (( f[7] > scale )) && scale=$f[7]; done
    typeset -a ttable=("<table class=\"timing\"><thead><tr><th>Endpoint</th><th>Address</th><th>DNS</th><th>Connect</th><th>TLS</th><th>First byte</th><th>Total</th><th>HTTP</th><th>Phases</th></tr></thead><tbody>")
    for line in $TIMING_ROWS; do
        f=("${(@ps:\t:)line}")
        row="<tr>"
        for (( i = 1; i <= 8; i++ )); do
            c=$f[i]
            if [[ -n $f[9] ]] && (( i == f[9] + 2 )); then
                orv_esc "$c"; row+="<td class=\"stop\">$REPLY</td>"
                orv_esc "stopped at ${phase_names[f[9]]}: $f[10]"
                row+="<td class=\"why\" colspan=\"$(( 9 - i ))\">$REPLY</td>"
                break
            fi
            (( i >= 3 && i <= 7 )) && c=${c:+$c ms}
            orv_esc "${c:--}"; row+="<td>$REPLY</td>"
        done
        [[ -n $f[9] ]] && { ttable+=("$row</tr>"); continue }
        row+="<td><div class=\"bar\">"
        for (( i = 3; i <= 6; i++ )); do
            [[ -n $f[i] ]] && (( scale > 0 )) || continue
            printf -v c '%.1f' $(( f[i] * 100.0 / scale ))
            row+="<span class=\"p$(( i - 2 ))\" style=\"width:$c%\"></span>"
        done
        ttable+=("$row</div></td></tr>")
    done
    ttable+=("</tbody></table>" "<p class=\"note\">Times as curl measures them, each phase on its own: <span class=\"key p1\"></span>DNS <span class=\"key p2\"></span>connect <span class=\"key p3\"></span>TLS <span class=\"key p4\"></span>first byte; the bars share one scale, the slowest total filling the cell. An endpoint that stopped shows, in red, the phase it stopped at and why; the phases before it are this check's own measurements (the name lookup through the system resolver).</p>")
    ORV_BODY=("${(@)ORV_BODY[1,TIMING_AT]}" $ttable "${(@)ORV_BODY[TIMING_AT+1,-1]}")
fi
ORV_CSS+='table.timing td:nth-child(n+3):nth-child(-n+8):not(.why),table.timing th:nth-child(n+3):nth-child(-n+8){white-space:nowrap;text-align:right}
table.timing td:last-child:not(.why){width:22%;min-width:90px}
.bar{display:flex;height:12px;background:#eef1f6;border-radius:3px;overflow:hidden}
.bar span,.key{display:block;height:12px}.key{display:inline-block;width:10px;height:10px;margin:0 3px 0 8px;border-radius:2px}
table.timing td.stop{color:var(--fail);font-weight:600}
table.timing td.why{color:var(--fail)}
.p1{background:#8e6cc0}.p2{background:#2f8fd8}.p3{background:#e39b2d}.p4{background:#3aa76d}
'

# --- What to do next, from where the problem lies: the local side first, since it explains everything after it.
if (( ${#CAUSE_FAIL} )); then
    if (( CHECKED && UNREACHED >= CHECKED )) && [[ -n $CAUSE_FAIL[dns] && -z $CAUSE_FAIL[tcp] ]]; then
        orv_next_steps dns
    elif (( CHECKED && UNREACHED >= CHECKED )) && [[ -z $CAUSE_FAIL[proxy] ]]; then
        orv_next_steps local
    elif [[ -n $CAUSE_FAIL[clock] ]]; then
        orv_next_steps local "This Mac's date or time is wrong, so valid certificates look invalid: turn on setting the date and time automatically in System Settings, then run this check again."
    elif [[ -n $CAUSE_FAIL[proxy] ]]; then orv_next_steps proxy
    elif [[ -n $CAUSE_FAIL[dns] ]]; then orv_next_steps dns
    elif [[ -n $CAUSE_FAIL[tcp] ]]; then orv_next_steps firewall
    elif [[ -n $CAUSE_FAIL[refused] ]]; then
        orv_next_steps service "A server of the service refused the connection: it answered, so the way there works, but nothing listens on that port or the service there is down. Check that the port is the right one; if it is, send this report to support."
    elif [[ -n $CAUSE_FAIL[handshake] ]]; then
        orv_next_steps firewall "The service accepted the connection, but the encrypted handshake did not complete: a firewall that inspects traffic, or the service itself, is at fault. Send this report to your network administrator, and to support if nothing is found there."
    elif [[ -n $CAUSE_FAIL[certificate] ]]; then orv_next_steps certificate
    else orv_next_steps service
    fi
elif [[ -n $CAUSE_WARN[proxy] ]]; then
    orv_next_steps proxy "The service is reachable directly, but not through the configured proxy: if the client uses that proxy, send this report to your network administrator and ask for the service to be allowed."
elif [[ -n $CAUSE_WARN[renew] ]]; then
    orv_next_steps service "Everything works, but the service's certificate expires soon: send this report to support so that it is renewed in time."
elif [[ -n $CAUSE_WARN[client] ]]; then
    orv_next_steps client
elif [[ -n $CAUSE_WARN[legacy] ]]; then
    orv_next_steps service "Everything works, but the service still accepts retired TLS versions: send this report to support so that they are turned off."
else
    orv_next_steps none
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
typeset tab=$'\t'
for (( i = 1; i <= ${#ORV_FAILURES}; i++ )); do vlines+=("FAIL$tab$ORV_FAILURES[i]${FAIL_STEPS[i]:+$tab$FAIL_STEPS[i]}"); done
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
