#pragma once
// The reference host's own messages. Every line starts with "module-host: " so
// that scripts and tests can tell the host's lines from the module's log lines
// ("log: ..."). Information goes to standard output, failures to standard
// error; both are flushed at once so the order survives a pipe.
#include <QString>

void printHostLine(const QString& text);
void printHostError(const QString& text);
