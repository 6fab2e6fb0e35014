#pragma once

#include <QString>

#include <functional>

// The one road to the system log (syslog, ident "Corvina"). Messages always go through a fixed
// "%s" format, so a "%" in an address is never read as a conversion.
namespace SystemLog {

void write(const QString& message);

// Also hands every message to `echo` (the terminal modes print them); empty stops echoing.
void setEcho(std::function<void(const QString&)> echo);

} // namespace SystemLog
