#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

// One program run at a time, however many clients ask: a request joins the batch whose run
// starts next, so every answer comes from a run begun after the request came, and many
// requests cost one run, not one root process each.
class SharedRun final {
public:
    using Job = std::function<std::optional<std::string>()>;
    using ReplyHandler = std::function<void(std::optional<std::string>)>;

    explicit SharedRun(Job job) : m_job(std::move(job)) {}
    SharedRun(const SharedRun&) = delete;
    SharedRun& operator=(const SharedRun&) = delete;

    // Blocks until the run this request joined has ended, then replies with its answer.
    void answer(const ReplyHandler& reply);

private:
    struct Batch {
        std::optional<std::string> text;
        bool done = false;
    };

    Job m_job;
    std::mutex m_lock;
    std::condition_variable m_done;
    std::shared_ptr<Batch> m_running;
    std::shared_ptr<Batch> m_next;
};
