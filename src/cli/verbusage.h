#pragma once

#include <QString>

// The usage texts of the command line: the whole of it, and each verb's own (what
// `corvina VERB --help` prints).
namespace VerbUsage {

QString general();
// Null for a word that is no verb.
QString forVerb(const QString& verb);

} // namespace VerbUsage
