#pragma once

#include <QString>

#include <random>

// Generates lsof output that looks like a busy machine's: many processes, TCP and UDP on both
// address families, listeners, established connections and the odd state in between. Each
// call to next() changes about `churn` of the lines: states move on, connections close and
// new ones open, as between two real refreshes.
class LsofGenerator final {
public:
    explicit LsofGenerator(int lines, double churn = 0.05, unsigned seed = 1);

    // The current output, header first.
    QString text() const;
    // Advances to the next snapshot.
    void next();
    int lines() const { return int(m_sockets.size()); }

private:
    struct Socket {
        int process;
        int fd;
        int device;
        bool ipv6;
        bool udp;
        QString local;
        QString remote; // empty for listeners and unconnected UDP
        int state;      // index into the TCP states
    };
    Socket makeSocket();

    std::mt19937 m_random;
    double m_churn;
    int m_nextDevice = 100000;
    std::vector<int> m_nextFd;
    std::vector<Socket> m_sockets;
};
