#include "ownerlookup.h"

#include "privileged/ownersreply.h"

#include <algorithm>
#include <syslog.h>

std::string OwnerLookup::answer(const std::vector<std::uint64_t>& cookies)
{
    // Concurrent first requests wait here for the one load; later ones pass at once, and the
    // program, once loaded, is only read.
    std::call_once(m_loading, [this] {
        m_refusal = m_enabled ? m_program.load() : "turned off for this daemon (--without-ebpf)";
        if (!m_refusal.empty())
            syslog(LOG_WARNING, "socket owners cannot be noted: %s", m_refusal.c_str());
    });
    if (!m_refusal.empty())
        return OwnersReply::unavailableText(m_refusal);
    std::vector<std::uint64_t> asked(
        cookies.begin(),
        cookies.begin() + std::min(cookies.size(), HelperProtocol::kMaxOwnerCookies));
    std::sort(asked.begin(), asked.end());
    asked.erase(std::unique(asked.begin(), asked.end()), asked.end());
    std::vector<OwnersReply::Owner> owners;
    for (const std::uint64_t cookie : asked) {
        if (const auto owner = m_program.ownerOf(cookie))
            owners.push_back({cookie, owner->pid, owner->uid, owner->command});
    }
    return OwnersReply::knownText(owners);
}
