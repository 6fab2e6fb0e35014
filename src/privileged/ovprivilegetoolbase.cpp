#include "ovprivilegetoolbase.h"

#include "authorizationform.h"
#include "framedsocket.h"
#include "polkitauthority.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <thread>
#include <unistd.h>

using HelperProtocol::Operation;
using HelperProtocol::Status;

void privilegeAssert(bool condition, const char* expression)
{
    if (condition)
        return;
    std::fprintf(stderr, "Assertion failed: (%s)\n", expression);
    std::fflush(stderr);
    std::abort();
}

OVPrivilegeToolBase::OVPrivilegeToolBase(Options options) : m_options(std::move(options))
{
    if (::pipe2(m_stopPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        m_stopPipe[0] = m_stopPipe[1] = -1;
}

OVPrivilegeToolBase::~OVPrivilegeToolBase()
{
    if (m_listener >= 0)
        ::close(m_listener);
    if (m_ownsSocketFile)
        ::unlink(m_listenerPath.c_str());
    for (int fd : m_stopPipe) {
        if (fd >= 0)
            ::close(fd);
    }
}

std::string OVPrivilegeToolBase::machServiceName() const
{
    throw PrivilegeToolException("MachServiceName does not implement",
                                 "MachServiceName is required");
}

std::vector<Operation> OVPrivilegeToolBase::machServiceProtocol() const
{
    throw PrivilegeToolException("machServiceProtocol does not implement",
                                 "machServiceProtocol is required");
}

const OVPrivilegeToolBase::RightsTable& OVPrivilegeToolBase::_commandInfo() const
{
    std::call_once(m_commandInfoOnce, [this] {
        if (auto table = commandsRightInfo())
            m_commandInfo = std::move(*table);
    });
    return m_commandInfo;
}

std::optional<std::string>
OVPrivilegeToolBase::authorizationRightForCommand(std::string_view command) const
{
    const RightsTable& table = _commandInfo();
    const auto entry = table.find(std::string(command));
    if (entry == table.end() || !entry->second)
        return std::nullopt;
    const auto name = entry->second->find("authRightName");
    if (name == entry->second->end())
        return std::nullopt;
    return name->second;
}

void OVPrivilegeToolBase::enumerateRightsUsingBlock(const RightVisitor& block) const
{
    for (const auto& [command, entry] : _commandInfo()) {
        privilegeAssert(entry.has_value(), "[commandDict isKindOfClass:[NSDictionary class]]");
        const auto name = entry->find("authRightName");
        privilegeAssert(name != entry->end(), "[authRightName isKindOfClass:[NSString class]]");
        const auto rule = entry->find("authRightDefault");
        privilegeAssert(rule != entry->end(), "authRightDefault != nil");
        const auto description = entry->find("authRightDescription");
        privilegeAssert(description != entry->end(),
                        "[authRightDesc isKindOfClass:[NSString class]]");
        block(name->second, rule->second, description->second);
    }
}

namespace {

std::string xmlEscaped(const std::string& text)
{
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

} // namespace

void OVPrivilegeToolBase::setupAuthorizationRights(const std::string& policyDirectory) const
{
    privilegeAssert(!policyDirectory.empty(), "authRef != NULL");
    enumerateRightsUsingBlock(
        [&](const std::string& name, const std::string& rule, const std::string& description) {
            const std::filesystem::path file =
                std::filesystem::path(policyDirectory) / (name + ".policy");
            std::error_code ignored;
            if (std::filesystem::exists(file, ignored))
                return;
            std::ofstream out(file);
            out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                   "<!DOCTYPE policyconfig PUBLIC \"-//freedesktop//DTD PolicyKit Policy "
                   "Configuration 1.0//EN\"\n"
                   " \"http://www.freedesktop.org/standards/PolicyKit/1/policyconfig.dtd\">\n"
                   "<policyconfig>\n  <action id=\""
                << xmlEscaped(name) << "\">\n    <message>" << xmlEscaped(description)
                << "</message>\n    <defaults>\n      <allow_any>" << xmlEscaped(rule)
                << "</allow_any>\n      <allow_inactive>" << xmlEscaped(rule)
                << "</allow_inactive>\n      <allow_active>" << xmlEscaped(rule)
                << "</allow_active>\n    </defaults>\n  </action>\n</policyconfig>\n";
            out.close();
            privilegeAssert(static_cast<bool>(out), "blockErr == errAuthorizationSuccess");
        });
}

std::optional<AuthorizationError>
OVPrivilegeToolBase::checkAuthorization(const std::uint8_t* data, std::size_t size,
                                        const char* command,
                                        const std::optional<PeerCredentials>& peer) const
{
    privilegeAssert(command != nullptr, "command != nil");
    if (data == nullptr || size != AuthorizationForm::kSize)
        return AuthorizationError{AuthorizationError::kParameterError};
    const auto form = AuthorizationForm::fromBytes(data, size);
    if (!form)
        return AuthorizationError{AuthorizationError::kInvalidReference};
    // A form is only good for the process that made it: polkit is asked about that process, so a
    // peer must not borrow another's.
    if (peer && (form->pid != static_cast<std::uint32_t>(peer->pid) ||
                 form->uid != static_cast<std::uint32_t>(peer->uid)))
        return AuthorizationError{AuthorizationError::kInvalidReference};
    const auto right = authorizationRightForCommand(command);
    privilegeAssert(right.has_value(), "oneRight.name != NULL");
    const int status = PolkitAuthority::checkAuthorization(*form, *right);
    if (status != PolkitAuthority::kAllowed)
        return AuthorizationError{status};
    return std::nullopt;
}

void OVPrivilegeToolBase::adoptListener(int fd)
{
    m_listener = fd;
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    sockaddr_un address{};
    socklen_t length = sizeof(address);
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
        address.sun_family == AF_UNIX && length > offsetof(sockaddr_un, sun_path))
        m_listenerPath = address.sun_path;
}

bool OVPrivilegeToolBase::listenOn(const std::string& path, std::string* error)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        *error = "socket path '" + path + "' is empty or too long";
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = std::string("cannot create a socket: ") + std::strerror(errno);
        return false;
    }
    struct stat existing {};
    if (::lstat(path.c_str(), &existing) == 0 && S_ISSOCK(existing.st_mode))
        ::unlink(path.c_str());
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(fd, SOMAXCONN) != 0) {
        *error = "cannot listen on " + path + ": " + std::strerror(errno);
        ::close(fd);
        return false;
    }
    // As the systemd unit does: anyone may connect, the peer policy decides who is served.
    ::chmod(path.c_str(), 0666);
    adoptListener(fd);
    m_listenerPath = path;
    m_ownsSocketFile = true;
    return true;
}

std::string OVPrivilegeToolBase::listenerPath() const
{
    return m_listenerPath;
}

void OVPrivilegeToolBase::requestStop()
{
    m_stopping.store(true);
    if (m_stopPipe[1] >= 0) {
        const char byte = 's';
        [[maybe_unused]] const ssize_t ignored = ::write(m_stopPipe[1], &byte, 1);
    }
}

void OVPrivilegeToolBase::run()
{
    privilegeAssert(m_listener >= 0, "listener != nil");
    while (!m_stopping.load()) {
        {
            // At the cap, new clients wait in the listen backlog until a connection ends.
            std::unique_lock lock(m_lock);
            if (m_connections.size() >= m_options.maxConnections) {
                m_changed.wait_for(lock, std::chrono::milliseconds(50));
                continue;
            }
        }
        pollfd entries[2] = {{m_listener, POLLIN, 0}, {m_stopPipe[0], POLLIN, 0}};
        const int ready = ::poll(entries, 2, 1000);
        if (ready <= 0)
            continue;
        if (entries[1].revents != 0)
            break;
        if (entries[0].revents & POLLIN)
            acceptOne();
    }
    std::unique_lock lock(m_lock);
    // Wake every connection blocked waiting for a request; one running lsof ends within its
    // bound and still delivers its reply, since only the reading side is shut.
    for (const auto& [fd, uid] : m_connections)
        ::shutdown(fd, SHUT_RD);
    m_changed.wait(lock, [this] { return m_connections.empty(); });
}

bool OVPrivilegeToolBase::hasSlotFor(uid_t uid) const
{
    // Root may take any free slot; the run loop keeps the total under the cap.
    if (uid == 0)
        return true;
    std::size_t others = 0;
    std::size_t own = 0;
    for (const auto& [fd, owner] : m_connections) {
        others += owner != 0 ? 1 : 0;
        own += owner == uid ? 1 : 0;
    }
    const std::size_t shared = m_options.maxConnections > m_options.rootReservedConnections
                                   ? m_options.maxConnections - m_options.rootReservedConnections
                                   : 0;
    return others < shared && own < m_options.maxConnectionsPerPeer;
}

void OVPrivilegeToolBase::acceptOne()
{
    const int fd = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return;
    // A peer whose credentials cannot be read is counted as a stranger, then refused.
    PeerCredentials peer;
    if (!PeerCredentials::read(fd, &peer))
        peer.uid = static_cast<uid_t>(-1);
    std::lock_guard lock(m_lock);
    if (!hasSlotFor(peer.uid)) {
        // Said at once, on a fresh socket whose buffer takes the few bytes without waiting.
        const std::string why = "too many connections; try again later";
        const auto head =
            HelperProtocol::encodeReplyFrameHead(Operation{0}, Status::Busy, why.size());
        FramedSocket socket(fd);
        const auto deadline = FramedSocket::Clock::now() + std::chrono::milliseconds(100);
        if (socket.writeRaw(head.data(), head.size(), deadline) == FramedSocket::Result::Ok)
            socket.writeRaw(reinterpret_cast<const std::uint8_t*>(why.data()), why.size(),
                            deadline);
        return;
    }
    m_connections.emplace(fd, peer.uid);
    try {
        std::thread([this, fd] {
            serveConnection(fd);
            // Notified under the lock: once it is released this thread touches the tool no
            // more, so run() may return and the tool go away.
            std::lock_guard innerLock(m_lock);
            m_connections.erase(fd);
            ::close(fd);
            m_changed.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        // Out of threads: this client is dropped, the daemon goes on serving the others.
        m_connections.erase(fd);
        ::close(fd);
    }
}

bool OVPrivilegeToolBase::awaitRequest(int fd) const
{
    const auto deadline = FramedSocket::Clock::now() + m_options.idleTimeout;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - FramedSocket::Clock::now());
        if (left.count() <= 0)
            return false;
        pollfd entry{fd, POLLIN, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(left.count()));
        // Readable also at the peer's close or our own shutdown: the read then says which.
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
    }
}

void OVPrivilegeToolBase::serveConnection(int fd)
{
    using Clock = FramedSocket::Clock;
    // Borrowed descriptor: the accept loop closes it under its lock.
    FramedSocket socket(fd);
    const auto releaseSocket = [&socket] { [[maybe_unused]] int fd = socket.release(); };

    // The text goes out from where it lies: lsof's output may be megabytes, and up to the
    // connection cap of replies are written at once.
    const auto send = [&](Operation operation, Status status, const std::string& text) {
        const std::size_t textSize = status == Status::Null ? 0 : text.size();
        if (HelperProtocol::kReplyHeaderSize + textSize > HelperProtocol::kMaxReplyFrame)
            return false;
        const auto head = HelperProtocol::encodeReplyFrameHead(operation, status, textSize);
        const auto deadline = Clock::now() + m_options.requestTimeout;
        return socket.writeRaw(head.data(), head.size(), deadline) == FramedSocket::Result::Ok &&
               socket.writeRaw(reinterpret_cast<const std::uint8_t*>(text.data()), textSize,
                               deadline) == FramedSocket::Result::Ok;
    };

    PeerCredentials peer;
    if (!PeerCredentials::read(fd, &peer) || !m_options.policy.allows(peer)) {
        send(Operation{0}, Status::Refused, "peer not allowed");
        releaseSocket();
        return;
    }
    const std::vector<Operation> exported = machServiceProtocol();
    std::vector<std::uint8_t> payload;
    while (awaitRequest(fd)) {
        // Only the request that names sockets by the thousand may be long; any other is small.
        const auto result = socket.readFrame(
            payload, HelperProtocol::kMaxOwnersRequestFrame, HelperProtocol::kRequestSize,
            [](const std::uint8_t* head) { return HelperProtocol::maxRequestFrame(head[1]); },
            Clock::now() + m_options.requestTimeout);
        if (result == FramedSocket::Result::TooLarge)
            send(Operation{0}, Status::BadRequest, "request frame too large");
        if (result != FramedSocket::Result::Ok)
            break;
        HelperProtocol::DecodeError error;
        const auto request = HelperProtocol::decodeRequest(payload, &error);
        if (request &&
            std::find(exported.begin(), exported.end(), request->operation) == exported.end()) {
            error.message = "operation not exported";
        }
        if (!request || !error.message.empty()) {
            send(request ? request->operation : Operation{0}, Status::BadRequest, error.message);
            break;
        }
        std::optional<std::string> answer;
        perform(*request, peer,
                [&answer](std::optional<std::string> value) { answer = std::move(value); });
        if (!send(request->operation, answer ? Status::Text : Status::Null, answer.value_or("")))
            break;
    }
    releaseSocket();
}

void OVPrivilegeToolBase::perform(const HelperProtocol::Request& request, const PeerCredentials&,
                                  const ReplyHandler& reply)
{
    switch (request.operation) {
    case Operation::ConnectWithEndpoint:
        connectWithEndpointReply(reply);
        return;
    case Operation::GetVersion:
        getVersionWithReply(reply);
        return;
    case Operation::RunLsof:
    case Operation::RunCollector:
    case Operation::CloseConnection:
    case Operation::SocketOwners:
        break;
    }
    reply(std::nullopt);
}

void OVPrivilegeToolBase::connectWithEndpointReply(const ReplyHandler& reply) const
{
    if (m_listenerPath.empty())
        reply(std::nullopt);
    else
        reply(m_listenerPath);
}

void OVPrivilegeToolBase::getVersionWithReply(const ReplyHandler& reply) const
{
    reply(bundleVersion());
}
