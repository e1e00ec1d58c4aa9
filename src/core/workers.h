// Worker threads that belong to one processing handle: started on first use, reused by every later
// parallel call on that handle, joined when the handle is released. Nothing is shared between handles.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace vq {

class Workers {
public:
    Workers() = default;
    Workers(const Workers &) = delete;
    Workers &operator=(const Workers &) = delete;
    ~Workers();

    // Runs task(0) .. task(count - 1) and returns when all have finished. Task 0 runs on the calling
    // thread, the others on workers; a task whose worker cannot be started runs on the calling thread.
    void run(int count, const std::function<void(int)> &task);

private:
    void loop(int index);

    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable finished_;
    std::vector<std::thread> threads_; // worker i runs task i + 1
    const std::function<void(int)> *task_ = nullptr;
    int count_ = 0;           // tasks of the current run
    int pending_ = 0;         // worker tasks of the current run not yet finished
    uint64_t generation_ = 0; // advanced by every run
    bool stopping_ = false;
};

// The number of threads a call uses: `requested`, or one per hardware thread when it is 0.
int threadCount(uint32_t requested);

} // namespace vq
