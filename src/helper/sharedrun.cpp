#include "sharedrun.h"

void SharedRun::answer(const ReplyHandler& reply)
{
    std::unique_lock lock(m_lock);
    if (!m_next)
        m_next = std::make_shared<Batch>();
    const std::shared_ptr<Batch> batch = m_next;
    while (!batch->done) {
        if (m_running) {
            m_done.wait(lock);
            continue;
        }
        // Nothing runs: the first of the batch's requests to notice runs it for all of them.
        m_next.reset();
        m_running = batch;
        lock.unlock();
        std::optional<std::string> text = m_job();
        lock.lock();
        batch->text = std::move(text);
        batch->done = true;
        m_running.reset();
        m_done.notify_all();
    }
    lock.unlock();
    // A finished batch is never written again, so its text is read without the lock.
    reply(batch->text);
}
