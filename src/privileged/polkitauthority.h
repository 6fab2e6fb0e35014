#pragma once

#include "authorizationform.h"

#include <string>

// Asks polkit over the system bus whether a process may perform an action. Statuses follow the
// authorization codes the clients know: 0 allowed, negative otherwise.
namespace PolkitAuthority {

inline constexpr int kAllowed = 0;
inline constexpr int kDenied = -60005;
inline constexpr int kInteractionNotAllowed = -60007;
inline constexpr int kInternalError = -60008;

int checkAuthorization(const AuthorizationForm& subject, const std::string& actionId);

} // namespace PolkitAuthority
