# machine: default
# A CPU offline, then all CPUs of a node.

echo 0 >/sys/devices/system/cpu/cpu1/online
run -I
expect 'numa_id  : 0
is_online: 1
local_id : 0
has_cpu  : 1
cpu list : 0
'
run -B -j 4
expect_status 1
expect 'Invalid thread. (2 <= thread <= 3): 4'
# The kernel takes the topology of an offline CPU away, without which it counts as online.
run -Z -M 2 -k 2 -l 0-1 -m 8m
expect_status 1
expect 'Invalid load_cpu. cpu1 is offline.'
run -Y -k 1
expect_status 1
expect 'cpu1 is offline or outside the cpuset of this process. Usable CPUs: 0,2-3'
echo 1 >/sys/devices/system/cpu/cpu1/online

echo 0 >/sys/devices/system/cpu/cpu2/online
echo 0 >/sys/devices/system/cpu/cpu3/online
run -I
expect 'numa_id  : 1
is_online: 1
local_id : 2
has_cpu  : 0
cpu list : '
run -C 1 -Y
expect_status 1
expect 'Invalid cpunode: 1'
# Now nodes 1 and 2 are nearest to each other, and neither has a CPU to measure from.
run -A -Y -m 64m -i 1
expect_status 0
expect '===== Find Local CPU node ====='
expect 'cpu-numa_id: 0
mem-numa_id: 1
cpu_id     : 1'
expect 'cpu-numa_id: 0
mem-numa_id: 2
cpu_id     : 1'
expect_results 2
echo 1 >/sys/devices/system/cpu/cpu2/online
echo 1 >/sys/devices/system/cpu/cpu3/online

# In the middle of a measurement: the kernel moves the thread to another CPU. That is found at its end,
# which three times as many passes do not reach in time on a busy host.
for command in '-Y -M 2 -C 1 -i 100' '-B -M 2 -l 0-2 -i 1'; do
  start $command -m 64m
  wait_for '(Sequential)'
  sleep 3
  echo 0 >/sys/devices/system/cpu/cpu2/online
  finish
  echo 1 >/sys/devices/system/cpu/cpu2/online
  expect_status 1
  expect 'CPU 2 was taken away while it measured'
  expect_not 'Avg.'
done
