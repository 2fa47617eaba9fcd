# machine: threads
# Two hyper-threads a core: a sibling of the latency CPU among the load CPUs is warned about, and
# does not hide the latency CPU itself behind it.

run -Z -M 1 -k 3 -l 2-4
expect_status 1
expect "lat_cpu and load_cpu can't use same cpu_id. lat_cpu: 3, load_cpu: 3"
expect_not 'same physical core'
run -Z -M 1 -k 3 -l 2,4 -m 8m -i 1 -D 50
expect_status 0
expect 'lat_cpu and load_cpu use same physical core.'
expect 'latency thread cpu_id : 3'
