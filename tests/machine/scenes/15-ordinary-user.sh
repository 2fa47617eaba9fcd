# machine: default
# Without root there are warnings and a random chase, and results all the same.

user=tester
run -Y -M 2 -m 64m -i 1
expect_status 0
expect 'VELMO requires root privilege'
expect 'Failed to open SRAT'
expect 'Failed to access msr.'
expect '64 Byte stride is not enough to measure latency so increase to 256 Byte.'
expect 'Start Burst Latency (Random)'
expect_results 1
check 'the log file is missing' test -s mem0_rnd_burst-lat_*.txt
