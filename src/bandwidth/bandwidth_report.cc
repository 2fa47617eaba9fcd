#include "bandwidth/bandwidth_report.h"

namespace velmo {

void WriteInterval(std::ostream& out, int number, double bandwidth) {
  out << '#' << number << ": " << bandwidth << " MB/s\n";
}

void WriteBandwidth(std::ostream& out, const BandwidthResult& result) {
  out << "Avg. BW: " << result.average << " MB/s\n"
      << "Max. BW: " << result.maximum << " MB/s\n"
      << "Min. BW: " << result.minimum << " MB/s\n";
}

}  // namespace velmo
