#include "polkitauthority.h"

#include <systemd/sd-bus.h>

namespace {

// Owns the bus and the two messages of one call.
struct BusCall {
    sd_bus* bus = nullptr;
    sd_bus_message* request = nullptr;
    sd_bus_message* reply = nullptr;
    sd_bus_error error{}; // SD_BUS_ERROR_NULL, which is a C compound literal in C++

    ~BusCall()
    {
        sd_bus_error_free(&error);
        sd_bus_message_unref(reply);
        sd_bus_message_unref(request);
        sd_bus_flush_close_unref(bus);
    }
};

constexpr std::uint32_t kAllowUserInteraction = 1;

int appendSubject(sd_bus_message* m, const AuthorizationForm& subject)
{
    int r = sd_bus_message_open_container(m, 'r', "sa{sv}");
    if (r >= 0)
        r = sd_bus_message_append(m, "s", "unix-process");
    if (r >= 0)
        r = sd_bus_message_append(m, "a{sv}", 3, "pid", "u", subject.pid, "start-time", "t",
                                  subject.startTime, "uid", "i",
                                  static_cast<std::int32_t>(subject.uid));
    if (r >= 0)
        r = sd_bus_message_close_container(m);
    return r;
}

} // namespace

int PolkitAuthority::checkAuthorization(const AuthorizationForm& subject,
                                        const std::string& actionId)
{
    BusCall call;
    if (sd_bus_open_system(&call.bus) < 0)
        return kInternalError;
    int r = sd_bus_message_new_method_call(call.bus, &call.request, "org.freedesktop.PolicyKit1",
                                           "/org/freedesktop/PolicyKit1/Authority",
                                           "org.freedesktop.PolicyKit1.Authority",
                                           "CheckAuthorization");
    if (r >= 0)
        r = appendSubject(call.request, subject);
    if (r >= 0)
        r = sd_bus_message_append(call.request, "sa{ss}us", actionId.c_str(), 0,
                                  kAllowUserInteraction, "");
    if (r < 0)
        return kInternalError;
    // The user may be typing a password: allow polkit's agent a generous but finite time.
    constexpr std::uint64_t kTimeoutMicroseconds = 120ULL * 1000 * 1000;
    if (sd_bus_call(call.bus, call.request, kTimeoutMicroseconds, &call.error, &call.reply) < 0)
        return kInternalError;
    int authorized = 0;
    int challenge = 0;
    if (sd_bus_message_enter_container(call.reply, 'r', "bba{ss}") < 0 ||
        sd_bus_message_read(call.reply, "bb", &authorized, &challenge) < 0)
        return kInternalError;
    if (authorized)
        return kAllowed;
    return challenge ? kInteractionNotAllowed : kDenied;
}
