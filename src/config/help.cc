// The help pages. Their text is part of the user interface: spelling and spacing stay as they are.

#include <iostream>

#include "app/version.h"
#include "config/configurator.h"

namespace velmo {
namespace {

void print_page(const char* text) { std::cout << "\nVELMO ver." << kVersion << '\n' << text; }

}  // namespace

void Configurator::Usage() const {
  print_page(R"(Usage: sudo ./velmo [command] [options]

COMMANDS
    -v               : --version                     | print version
    -h               : --help                        | print this help
    -I               : --system_info                 | show system information (node, memory devices)
    -B               : --bandwidth                   | measure bandwidth
    -Y               : --burst_latency               | measure burst latency (prefer sudo)
    -Z               : --loaded_latency              | measure loaded latency (prefer sudo)
    -T               : --bandwidth_local             | measure bandwidth on local cpu-node

OPTIONS
    -m <size>        : --mem_size=<size>             | memory size[byte]. (g/G: GB, m/M: MB, k/K: KB)
    -o <filename>    : --output=<filename>           | log filename
    -c <chunk>       : --chunk=<chunk>               | chunk size. Default=1 (16byte)
    -C <node>        : --cpunode=<node>              | bind cpu-node
    -M <node>        : --memnode=<node>              | bind memory-node
    -V <verbose>     : --verbose=<verbose>           | 1: save log file, 0: only print on terminal. Default=1
    -s <size>        : --stride=<size>               | stride size[byte]. Default=64
    -i <iter>        : --iter=<iter>                 | test iterations.
    -k <cpu_id>      : --latency_cpu=<cpu_id>        | use cpu binding to measure latency.
    -l <cpu_id_list> : --load_cpu=<cpu_id_list>      | use cpu binding to meausre bandwidth. (ex. -l1-2,5-8)
    -A               : --auto                        | test all memory devices w/o DIMM. Default=False
    -f <path>        : --devdax=<path>               | use devdax mode. Only latency mode
    -g <path>        : --pmem=<path>                 | use persistent memory

BW CONFIGS
    -a               : --basic_workload              | Test each workloads: 1R, 1W(non-temporal write),
                                                     | 3R1W, 2R1W, 1R1W, 2R1W(non-temporal write)
    -r <ratio>       : --read=<ratio>                | read ratio
    -w <ratio>       : --write=<ratio>               | write ratio
    -n               : --stream                      | use non-temporal write (bypass cache)
    -j <number>      : --thread=<number>             | the number of threads. Min=2 (Main thread use 1 thread)
    -F               : --full                        | use full(64byte) load/store instruction.
                                                     | Default=False (16byte)
    -D <delay>       : --bw_delay=<delay>            | utilize bandwidth (injection delay in load/store)
                                                     | measure loaded_latency at specific delay

If not use sudo, VELMO can't disable prefetcher. Then, VELMO can't measure sequential latency.
So, It is recommended to give root privileges.
<chunk> is 0 (8byte), 1 (16byte) or 2 (32byte)
If system doesn't support 16byte instructions, VELMO will generate 8 byte chunk-size
chunk config supports only latency mode.
<size> can have k/K (KiB), m/M (MiB), g/G (GiB)
'-A' option can't use with '-C' and '-M' options
'-C, -T, -j' option can't use with '-l' and '-k' options

example) sudo ./velmo --burst_latency -C0 -M0

)");
}

void Configurator::UsageBW() const {
  print_page(R"(Usage: sudo ./velmo [-B | --bandwidth] options ... 

Options:           [-C | --cpunode= <node>] [-M | --memnode= <node>]
                   [-a | --basic_workload] [-r | --read= <ratio>] [-w | --write= <ratio>] [-n | --stream]
                   [-i | --iter= <iter>] [-j | --thread= <number>] [-F | --full]
                   [-m | --mem_size= <size>] [-o | --output= <filename>] [-V | --verbose= <verbose>]
                   [-A | --auto] [-D | --bw_delay] [-g | --pmem=<path>] [-l | --load_cpu=<cpu_id_list>]

<size> can have k/K (KiB), m/M (MiB), g/G (GiB)
'-A' option can't use with '-C' and '-M' options
example Stream-Triad) sudo ./velmo -B -C0 -M1 -r2 -w1 -n
'D' option: measure bandwidth at a specific bandwidth utilization
)");
}

void Configurator::UsageBWLocal() const {
  print_page(R"(Usage: sudo ./velmo [-T | --bandwidth_local] [-M | --memnode= <node>] options ... 

Options:           [-a | --basic_workload] [-r | --read= <ratio>] [-w | --write= <ratio>] [-n | --stream]
                   [-i | --iter= <iter>] [-j | --thread= <number>] [-F | --full] [-m | --mem_size= <size>]  
                   [-o | --output= <filename>] [-V | --verbose= <verbose>] [-D | --bw_delay] [-g | --pmem=<path>]

<size> can have k/K (KiB), m/M (MiB), g/G (GiB)
'-A' option can't use with '-C' and '-M' options
example Stream-Triad) sudo ./velmo -T -M1 -r2 -w1 -n
'D' option: measure local bandwidth at a specific bandwidth utilization
)");
}

void Configurator::UsageLat() const {
  print_page(R"(Usage: sudo ./velmo [-L | --latency] options ... 
       sudo ./velmo [-Y | --burst_latency] options ... 
       sudo ./velmo [-Y | --burst_latency] [-f | --devdax=<path>] options ... 
       sudo ./velmo [-Y | --burst_latency] [-g | --pmem=<path>] options ... 

Options:           [-C | --cpunode= <node>] [-M | --memnode= <node>] [-i | --iter= <iter>]
                   [-m | --mem_size= <size>] [-o | --output= <filename>] [-c | --chunk= <chunk>]
                   [-V | --verbose= <verbose>] [-s | --stride= <size>] [-A | --auto]
                   [-k | --latency_cpu=<cpu_id>]

If not use sudo, VELMO can't disable prefetcher. Then, VELMO can't measure sequential latency.
So, It is recommended to give root privileges.
<chunk> is 0 (8byte), 1 (16byte) or 2 (32byte)
If system doesn't support 16byte instructions, VELMO will generate 8 byte chunk-size
<size> can have k/K (KiB), m/M (MiB), g/G (GiB)
'-A' option can't use with '-C', '-M' and '-b' options
example) sudo ./velmo -L -M2
example) sudo ./velmo -X -A
)");
}

void Configurator::UsageLoadedLat() const {
  print_page(R"(Usage: sudo ./velmo [-Z | --loaded_latency] options ... 

Options:           [-C | --cpunode= <node>] [-M | --memnode= <node>]
                   [-r | --read= <ratio>] [-w | --write= <ratio>] [-n | --stream]
                   [-j | --thread= <number>] [-F | --full] [-m | --mem_size= <size>]
                   [-o | --output= <filename>] [-V | --verbose= <verbose>]
                   [-A | --auto] [-D | --bw_delay] [-g | --pmem=<path>]
                   [-k | --latency_cpu=<cpu_id>] [-l | --load_cpu=<cpu_id_list>]

<size> can have k/K (KiB), m/M (MiB), g/G (GiB)
'-A' option can't use with '-C' and '-M' options
example Stream-Triad) sudo ./velmo -Z -C0 -M1 -r2 -w1 -n
'D' option: measure loaded latency at a specific bandwidth utilization
)");
}

}  // namespace velmo
