# The emulated machines, a function machine_NAME each, which puts together the arguments of the
# emulator (parts) and the kernel's command line (command_line). Read by script/test-machine; the
# first line of a scene names its machine.

# processor VENDOR FAMILY MODEL STEPPING
processor() { parts+=(-cpu "max,vendor=$1,family=$2,model=$3,stepping=$4"); }

# A processor on which velmo runs no spinning threads: they would take the few cores that emulate
# it. VENDOR FAMILY.
unspun() { processor "$1" "$2" 207 2; }

# two_sockets BYTES: two CPUs in each, memory that is there from the start, room for more.
two_sockets() { parts+=(-smp 4,sockets=2,cores=2 -m "$1,slots=4,maxmem=16G"); }

# node NUMBER SIZE [SOCKET]: memory, and the CPUs of a socket.
node() {
  parts+=(-object "memory-backend-ram,id=ram$1,size=$2" -numa "node,nodeid=$1,memdev=ram$1")
  [ $# -lt 3 ] || parts+=(-numa "cpu,node-id=$1,socket-id=$3")
}

# bare_node NUMBER: a node that the devices of the machine may belong to.
bare_node() { parts+=(-numa "node,nodeid=$1"); }

# dimm NODE SIZE: memory that the kernel can take offline.
dimm() {
  parts+=(-object "memory-backend-ram,id=dimm$1,size=$2"
    -device "pc-dimm,id=slot$1,memdev=dimm$1,node=$1")
}

# nvdimm NODE NUMBER SIZE: persistent memory without labels.
nvdimm() {
  parts+=(-object "memory-backend-ram,id=nv$2,size=$3"
    -device "nvdimm,id=nvdimm$2,memdev=nv$2,node=$1")
}

# distance NODE NODE VALUE: the same in both directions.
distance() { parts+=(-numa "dist,src=$1,dst=$2,val=$3"); }

# Nodes 0 and 1 with two CPUs each, node 2 with memory alone, at these distances from them.
three_nodes() {
  two_sockets 3G
  node 0 1G 0
  node 1 1G 1
  node 2 1G
  distance 0 1 21
  distance 0 2 "$1"
  distance 1 2 "$2"
}

# Node 2 is nearest to node 1.
machine_default() {
  unspun AuthenticAMD 15
  three_nodes 30 17
  nvdimm 0 0 512M
  nvdimm 0 1 512M
}

# A processor whose prefetcher switches are in a register that the emulator keeps. Node 2 is as near
# to node 0 as to node 1.
machine_core2() {
  processor GenuineIntel 6 23 10
  three_nodes 20 20
}

# Nodes 0 and 1 with two cores each, of two hyper-threads: CPUs 0 and 1, 2 and 3 and so on.
machine_threads() {
  unspun GenuineIntel 6
  parts+=(-smp 8,sockets=2,cores=2,threads=2 -m 2G)
  node 0 1G 0
  node 1 1G 1
  distance 0 1 21
}

# Nodes 0 and 1 with two CPUs each, node 3 with memory alone and nearest to node 1. The kernel knows
# node 2 by its NVDIMM, which does not bring it online: a gap in the numbers.
machine_gap() {
  unspun AuthenticAMD 15
  two_sockets 2G
  node 0 1G 0
  node 1 1G 1
  bare_node 2
  bare_node 3
  nvdimm 2 0 512M
  dimm 3 1G
  distance 0 1 21
  distance 0 2 24
  distance 0 3 30
  distance 1 2 28
  distance 1 3 17
  distance 2 3 40
  command_line+=(memhp_default_state=online_movable)
}
