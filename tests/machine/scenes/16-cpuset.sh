# machine: default
# A part of the machine, as a container has it: a CPU of each node, without the expander's memory.

mount -t cgroup -o cpuset none /mnt || fail 'no cpusets'
mkdir /mnt/part
echo 1,3 >/mnt/part/cpuset.cpus
echo 0-1 >/mnt/part/cpuset.mems
# This shell, which hands it on.
sh -c 'echo $PPID >/mnt/part/cgroup.procs'

run -I
expect 'cpu list : 0-1'
run -Y -k 2
expect_status 1
expect 'cpu2 is offline or outside the cpuset of this process. Usable CPUs: 1,3'
for target in '-M 2' -A; do
  run -Y $target -m 64m
  expect_status 1
  expect 'Memory node 2 is outside the cpuset of this process. Allowed nodes: 0-1'
done
run -Y -M 1 -m 64m -i 1
expect_status 0
expect 'cpu-numa_id: 1
mem-numa_id: 1
cpu_id     : 3'
expect_results 1

start -B -M 0 -m 8m -i 1
wait_for 'VELMO START'
# Away from the busy CPUs, to look at them.
sh -c 'echo $PPID >/mnt/cgroup.procs'
wait_for 'Read Ratio'
sleep 2
equal 'CPUs of the threads' "$(thread_cpus)" '1 3 '
finish
expect_status 0
expect 'BW threads cpu_id: 3
main thread cpu_id: 1'
# The watch of timeout looks once a second whether it is still needed.
sleep 3
check 'the cpuset stays' rmdir /mnt/part
