#pragma once

#include <QString>

#include <functional>

// The one road to the system log (syslog, ident "Corvina"). Messages always go through a fixed
// "%s" format, so a "%" in an address is never read as a conversion.
namespace SystemLog {

// `echo` false keeps the message out of the echo (its writer shows it on its own).
void write(const QString& message, bool echo = true);

// Also hands every message to `echo` (the terminal modes print them); empty stops echoing.
void setEcho(std::function<void(const QString&)> echo);

} // namespace SystemLog
