#include "bandwidth/load_team.h"

#include <unistd.h>

#include <new>
#include <type_traits>
#include <utility>

#include "app/clock.h"
#include "app/threads.h"

namespace velmo {

static_assert(std::is_trivially_destructible_v<LoadWorker>, "its memory is released without it");

LoadTeam::LoadTeam(const LoadSpec& spec, std::vector<int> cpus,
                   const std::vector<LoadRegions>& regions)
    : cpus_(std::move(cpus)), last_sample_(cpus_.size()) {
  seats_.resize(cpus_.size());
  workers_.resize(cpus_.size());
  run_pinned(cpus_, [&](size_t i) {
    seats_[i] = Buffer({}, sizeof(LoadWorker));
    workers_[i] = new (seats_[i].data()) LoadWorker(spec);
    workers_[i]->SetMem(regions[i].data, regions[i].region, spec.passes > 0 ? cpus_[i] : -1);
  });
}

LoadTeam::~LoadTeam() { Stop(); }

void LoadTeam::Park() {
  threads_.reserve(workers_.size());
  tids_.resize(workers_.size());
  for (size_t i = 0; i < workers_.size(); ++i) {
    threads_.push_back(start_thread([this, i] {
      tids_[i] = gettid();
      workers_[i]->Start(gate_);
      check_still_pinned(cpus_[i]);
    }));
    set_thread_affinity(&threads_.back(), cpus_[i]);
  }
  gate_.AwaitArrival(static_cast<int>(threads_.size()));
}

std::vector<WatchedThread> LoadTeam::threads() const {
  std::vector<WatchedThread> threads;
  for (size_t i = 0; i < tids_.size(); ++i) threads.push_back({tids_[i], cpus_[i]});
  return threads;
}

double LoadTeam::Sample(size_t i) {
  const uint64_t bytes = workers_[i]->bytes_.exchange(0);
  const double now = static_cast<double>(monotonic_ns()) * 1e-9;
  const double elapsed = now - std::exchange(last_sample_[i], now);
  return static_cast<double>(bytes) / elapsed;
}

void LoadTeam::Stop() {
  for (LoadWorker* worker : workers_) worker->stop_ = true;
  OpenGate();
  for (std::thread& thread : threads_) {
    if (thread.joinable()) thread.join();
  }
}

double LoadTeam::Join(size_t i) {
  threads_[i].join();
  return workers_[i]->bandwidth_;
}

}  // namespace velmo
