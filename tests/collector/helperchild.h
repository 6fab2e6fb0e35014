#pragma once

#include <QByteArray>

#include <sys/types.h>

#include <initializer_list>
#include <optional>

// A forked process that holds sockets for a test and changes them on request. Every request is
// answered once done, so the test knows the change has happened before it looks. The child
// keeps only the descriptors it is given; the test process's others it closes, so that closing
// a socket in the test closes it for good.
class HelperChild final {
public:
    // A child keeping the test's descriptors `keep`, at the same numbers.
    explicit HelperChild(std::initializer_list<int> keep = {});
    // A child with process id `pid` (which must be free), or nothing when this system does not
    // let us choose (clone3 with set_tid needs CAP_SYS_ADMIN or CAP_CHECKPOINT_RESTORE).
    static std::optional<HelperChild> withPid(pid_t pid, std::initializer_list<int> keep = {});
    HelperChild(HelperChild&& other) noexcept;
    HelperChild& operator=(HelperChild&&) = delete;
    ~HelperChild();

    pid_t pid() const { return m_pid; }

    // Each answers the child's result: a descriptor number, or -1 with the child's errno lost.
    int listen() { return request('l'); }   // a new TCP listener on 127.0.0.1, its descriptor
    int openFile() { return request('f'); } // /dev/null, its descriptor
    int close(int fd) { return request('c', fd); }
    int dup2(int from, int to) { return request('d', from, to); }
    // `fd` passed over SCM_RIGHTS: the child's descriptor for it
    int receive(int fd) { return request('r', 0, 0, {}, fd); }
    int send(int fd); // the child's `fd` passed back: the test's new descriptor
    int rename(const QByteArray& name) { return request('n', 0, 0, name); } // prctl(PR_SET_NAME)
    int setUser(uid_t uid) { return request('u', int(uid)); } // setresuid(uid, uid, uid)
    // Asks the child to exit and reaps it.
    void exit();

private:
    HelperChild(pid_t pid, int control) : m_pid(pid), m_control(control) {}
    static int spawn(std::initializer_list<int> keep, const std::optional<pid_t>& pid,
                     pid_t* child);
    int request(char command, int a = 0, int b = 0, const QByteArray& text = {}, int passFd = -1,
                int* received = nullptr);

    pid_t m_pid = -1;
    int m_control = -1;
};
