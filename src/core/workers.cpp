#include "core/workers.h"

#include <algorithm>
#include <system_error>

namespace vq {

Workers::~Workers() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread &t : threads_) t.join();
}

void Workers::loop(int index) {
    uint64_t seen = 0;
    for (;;) {
        const std::function<void(int)> *task;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [&] { return stopping_ || generation_ != seen; });
            if (stopping_) return;
            seen = generation_;
            if (index + 1 >= count_) continue; // not needed in this run
            task = task_;
        }
        (*task)(index + 1);
        std::lock_guard<std::mutex> lock(mutex_);
        if (--pending_ == 0) finished_.notify_one();
    }
}

void Workers::run(int count, const std::function<void(int)> &task) {
    int started = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        while (static_cast<int>(threads_.size()) < count - 1) {
            try {
                const int index = static_cast<int>(threads_.size());
                threads_.emplace_back([this, index] { loop(index); });
            } catch (const std::system_error &) {
                break; // no more threads to be had: the calling thread takes the rest
            }
        }
        started = std::min(count - 1, static_cast<int>(threads_.size()));
        task_ = &task;
        count_ = started + 1;
        pending_ = started;
        ++generation_;
    }
    if (started > 0) wake_.notify_all();
    task(0);
    for (int i = started + 1; i < count; ++i) task(i);
    std::unique_lock<std::mutex> lock(mutex_);
    finished_.wait(lock, [&] { return pending_ == 0; });
    task_ = nullptr;
}

int threadCount(uint32_t requested) {
    if (requested != 0) return requested > 256 ? 256 : static_cast<int>(requested);
    const unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : (n > 256 ? 256 : static_cast<int>(n));
}

} // namespace vq
