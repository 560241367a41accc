# What the scripts share: where things are, one line a stage, and the end of what was started.
# Source it; it leaves the shell in the root of the repository.
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin # nginx, for users who do not have them
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
build=build/release
logs=build/logs
mkdir -p "$logs"

fail() {
  echo "$*" >&2
  exit 1
}

# stage NAME COMMAND...: one line; what the command says is shown only when it fails.
stage() {
  local name=$1 log="$logs/${1// /_}.log" start=$SECONDS status=0
  shift
  printf '%-32s' "$name"
  "$@" >"$log" 2>&1 || status=$?
  if [ "$status" -eq 0 ]; then
    echo "ok, $((SECONDS - start)) s"
  else
    echo "failed with $status after $((SECONDS - start)) s:"
    cat "$log"
  fi
  return "$status"
}

# at_exit COMMAND: runs at the end of the script, the last one first.
exit_commands=()
at_exit() { exit_commands=("$*" "${exit_commands[@]}"); }
run_exit_commands() {
  local command
  for command in "${exit_commands[@]}"; do eval "$command" >>"$logs/exit.log" 2>&1 || true; done
}
trap run_exit_commands EXIT

configure() { cmake --preset release; }
build_targets() { cmake --build --preset release "$@"; }

# alone NAME: fails while another script works under the same name in this tree. The one that ends
# first would take the other's server away, and programs that lose it end with 1 and not a word. The
# lock is a helper's, since what Wine leaves running would keep one of the script's own.
alone() {
  local lock
  exec {lock}>"$root/build/$1.lock"
  flock -n "$lock" || fail "another $1 is running in this tree"
  tail --pid=$$ -f /dev/null >/dev/null 2>&1 &
  at_exit kill $!
  exec {lock}>&-
}

# start_wine NAME: a prefix of this script's own and one server until it ends.
start_wine() {
  export WINEPREFIX="$root/build/wine-$1" WINEDEBUG=-all
  export WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe,winedbg.exe=d'
  unset DISPLAY WAYLAND_DISPLAY
  if [ ! -f "$WINEPREFIX/ready" ]; then
    rm -rf "$WINEPREFIX"
    stage "wine prefix" make_wine_prefix
  fi
  wineserver -p >>"$logs/wineserver.log" 2>&1
  at_exit wineserver -k
}
# Windows are made without a screen.
make_wine_prefix() {
  wine wineboot -i && wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f &&
    wineserver -w && touch "$WINEPREFIX/ready"
}

# in_namespace COMMAND...: in a mount namespace of its own, since names with several addresses exist
# only for the tests. Below a changed root the root is no mount point, and its propagation cannot be
# changed: it is left as it is where mounts stay inside all the same.
in_namespace() {
  local unshare=(unshare --mount)
  if [ "$(id -u)" -ne 0 ]; then unshare+=(--map-root-user); fi
  keeps_mounts_inside "${unshare[@]}" 2>"$logs/unshare.log" || {
    unshare+=(--propagation unchanged)
    keeps_mounts_inside "${unshare[@]}" 2>>"$logs/unshare.log"
  } || fail "this machine refuses the mount namespace that the tests need: $(cat "$logs/unshare.log")"
  "${unshare[@]}" "$@"
}
# keeps_mounts_inside UNSHARE...: a mount can be made in the namespace and is not seen outside.
keeps_mounts_inside() {
  local place=$root/build/namespace
  mkdir -p "$place"
  "$@" sh -c "mount -t tmpfs inside '$place' && touch '$place/inside'" || return
  if [ ! -e "$place/inside" ]; then return 0; fi
  umount "$place"
  echo "a mount in a namespace is seen outside it" >&2
  return 1
}

# windows_path PATH: as the programs under Wine see it.
windows_path() {
  local path=$1
  case "$path" in /*) ;; *) path="$root/$path" ;; esac
  printf 'Z:%s' "${path//\//\\}"
}

# A locale with the code page that Windows has, for the programs of a native build.
make_locale() {
  if [ -d build/locale/tarnlo ]; then return 0; fi
  mkdir -p build/locale
  localedef -i en_US -f CP1252 build/locale/tarnlo
}

port_is_open() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# start_nginx PREFIX RATE: serves PREFIX/www on loopback, below /limited/ with RATE per connection,
# below /slow/ with very little. Sets nginx_url. PREFIX/access.log has a line a request: when it
# ended, how long it took, its connection, the status, the range asked for, the bytes sent.
start_nginx() {
  local prefix=$root/$1 rate=$2 port attempt
  mkdir -p "$prefix/www"
  for attempt in 1 2 3 4 5 6 7 8 9 10; do
    port=$((20000 + (RANDOM * 32768 + RANDOM) % 12000))
    if port_is_open "$port"; then continue; fi
    nginx_configuration "$prefix" "$port" "$rate" >"$prefix/nginx.conf"
    # In a session of its own: Ctrl+C in the terminal is the download's, not the server's.
    setsid nginx -p "$prefix" -e "$prefix/error.log" -c "$prefix/nginx.conf" 2>>"$prefix/error.log" &
    nginx_pid=$!
    if nginx_is_up "$nginx_pid" "$port"; then
      at_exit "kill -TERM $nginx_pid; wait $nginx_pid"
      nginx_url="http://127.0.0.1:$port"
      return 0
    fi
  done
  tail -n 5 "$prefix/error.log" >&2
  fail "nginx does not start"
}
# start_test_server: what the tests know as TARNLO_NGINX_URL, _ROOT and _LOG. Outside the namespace
# of the tests, in which it could not change its user.
start_test_server() {
  make_file build/nginx-test/www/one.bin 1
  make_file build/nginx-test/www/twenty.bin 20
  start_nginx build/nginx-test 1m
  export TARNLO_NGINX_URL=$nginx_url TARNLO_NGINX_ROOT TARNLO_NGINX_LOG
  TARNLO_NGINX_ROOT=$(windows_path build/nginx-test/www)
  TARNLO_NGINX_LOG=$(windows_path build/nginx-test/access.log)
}
nginx_is_up() {
  local attempt
  for attempt in {1..100}; do
    kill -0 "$1" 2>/dev/null || return 1
    if port_is_open "$2"; then return 0; fi
    sleep 0.05
  done
  kill -TERM "$1" 2>/dev/null
  return 1
}
nginx_configuration() {
  local prefix=$1 port=$2 rate=$3 path
  if [ "$(id -u)" -eq 0 ]; then echo 'user root;'; fi
  cat <<CONFIGURATION
daemon off;
worker_processes 1;
pid $prefix/nginx.pid;
error_log $prefix/error.log;
worker_rlimit_nofile 8192;
events { worker_connections 2048; }
http {
  log_format tarnlo '\$msec \$request_time \$connection \$status "\$http_range" \$bytes_sent "\$request"';
  access_log $prefix/access.log tarnlo;
  default_type application/octet-stream;
CONFIGURATION
  for path in client_body proxy fastcgi uwsgi scgi; do
    echo "  ${path}_temp_path $prefix/$path;"
  done
  cat <<CONFIGURATION
  server {
    listen 127.0.0.1:$port;
    root $prefix/www;
    location /limited/ {
      alias $prefix/www/;
      limit_rate $rate;
    }
    location /slow/ {
      alias $prefix/www/;
      limit_rate 16k;
    }
  }
}
CONFIGURATION
}

# make_file PATH MIB: non-repeating bytes, made once.
make_file() {
  if [ -f "$1" ]; then return 0; fi
  mkdir -p "$(dirname "$1")"
  head -c "${2}M" /dev/urandom >"$1.part"
  mv "$1.part" "$1"
}
