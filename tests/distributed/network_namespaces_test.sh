#!/bin/sh
# quillo-mpi across two network namespaces joined by a veth pair, one rank in
# each, talking TCP over the pair: the summary equals single-process quillo's.
# Needs root and working `ip netns`; otherwise the test is skipped (status 77).
#
#   network_namespaces_test.sh QUILLO_MPI QUILLO SOURCE_DIR
set -u
QUILLO_MPI=$1 QUILLO=$2 SOURCE_DIR=$3
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAILED: $*"; exit 1; }

[ "$(id -u)" = 0 ] || skip "creating network namespaces needs root"
command -v ip >/dev/null 2>&1 || skip "no ip command"
A=vmpia$$ B=vmpib$$
ip netns add "$A" 2>/dev/null || skip "ip netns add does not work here"
WORK=$(mktemp -d)
cleanup() { ip netns del "$A" 2>/dev/null; ip netns del "$B" 2>/dev/null; rm -rf "$WORK"; }
trap cleanup EXIT
ip netns add "$B" || skip "cannot add a second namespace"
ip link add "va$$" type veth peer name "vb$$" || skip "cannot create a veth pair"
ip link set "va$$" netns "$A" && ip link set "vb$$" netns "$B" || fail "cannot move the veth ends"
ip -n "$A" addr add 10.203.0.1/24 dev "va$$" && ip -n "$B" addr add 10.203.0.2/24 dev "vb$$" \
  || fail "cannot address the veth ends"
for ns in "$A" "$B"; do
  ip -n "$ns" link set lo up
done
ip -n "$A" link set "va$$" up && ip -n "$B" link set "vb$$" up || fail "cannot bring the pair up"

# mpirun starts the remote daemon through this instead of ssh: the host
# names are the namespaces' addresses.
cat >"$WORK/agent" <<EOF
#!/bin/sh
host=\$1; shift
case \$host in
  10.203.0.1) ns=$A ;;
  10.203.0.2) ns=$B ;;
  *) echo "unknown host \$host" >&2; exit 1 ;;
esac
exec ip netns exec \$ns sh -c "\$*"
EOF
chmod +x "$WORK/agent"
run_across() {
  ip netns exec "$A" timeout 300 mpirun --allow-run-as-root -np 2 --host 10.203.0.1,10.203.0.2 \
    --mca plm_rsh_agent "$WORK/agent" --mca btl self,tcp --mca btl_tcp_if_include 10.203.0.0/24 \
    --mca oob_tcp_if_include 10.203.0.0/24 "$@"
}

# Each rank sees only its own namespace's address.
run_across --tag-output ip -o -4 addr show >"$WORK/addresses" 2>&1 || fail "$(cat "$WORK/addresses")"
grep '^\[1,0\]' "$WORK/addresses" | grep -q 10.203.0.1 || fail "rank 0 not in $A: $(cat "$WORK/addresses")"
grep '^\[1,1\]' "$WORK/addresses" | grep -q 10.203.0.2 || fail "rank 1 not in $B: $(cat "$WORK/addresses")"
grep '^\[1,1\]' "$WORK/addresses" | grep -q 10.203.0.1 && fail "rank 1 sees $A's address"

/usr/bin/python3 "$SOURCE_DIR/tools/make_similarity.py" "$WORK/fl.npy" 301 || fail "no data"
"$QUILLO" -flfilename "$WORK/fl.npy" -sumsize 20 -outfilesummary "$WORK/single.npy" \
  >"$WORK/single.log" 2>&1 || fail "quillo: $(cat "$WORK/single.log")"
run_across "$QUILLO_MPI" -flfilename "$WORK/fl.npy" -sumsize 20 -outfilesummary "$WORK/across.npy" \
  >"$WORK/across.log" 2>&1 || fail "quillo-mpi: $(cat "$WORK/across.log")"
cmp "$WORK/single.npy" "$WORK/across.npy" || fail "the orders differ"
echo "OK: one rank in each of two network namespaces; same order as one process"
