# Sourced. The service that ./dev run starts: where its files are, and which processes are its own.

service_socket=/tmp/Veltrancord.unix
service_folder=run
session_file=$service_folder/session  # holds the session id that the service was started in

# Whether some service, ours or not, takes connections.
service_answers() {
    /usr/bin/python3 - "$service_socket" <<'PROBE' 2>/dev/null
import socket, sys
with socket.socket(socket.AF_UNIX) as probe:
    probe.settimeout(5)
    probe.connect(sys.argv[1])
PROBE
}

# The ids of the processes that ./dev run started and that still live, one a line. It started them in
# a session of their own, and the number of a session is not given away again before it is empty; a
# later session by the same number holds no process of this name.
service_processes() {
    local pid
    [[ -s $session_file ]] || return 0
    for pid in $(pgrep -s "$(<"$session_file")" || true); do
        [[ $(cat "/proc/$pid/comm" 2>/dev/null) != Veltrancord ]] || echo "$pid"
    done
}

# Ends them: asks first, insists after 5 seconds.
stop_service() {
    local pids waited=0
    mapfile -t pids < <(service_processes)
    ((${#pids[@]} > 0)) || return 0
    kill -TERM "${pids[@]}" 2>/dev/null || true
    while [[ -n $(service_processes) ]]; do
        if ((waited == 50)); then
            mapfile -t pids < <(service_processes)
            kill -KILL "${pids[@]}" 2>/dev/null || true
        fi
        ((waited += 1))
        ((waited < 100)) || return 1
        sleep 0.1
    done
}
