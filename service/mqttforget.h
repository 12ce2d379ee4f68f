#pragma once

#include <QString>

struct MqttOptions;

// orv-cli serve --mqtt URL --forget ID: clears module ID's discovery configs
// and retained topics on the broker (empty retained payloads) and returns
// the exit code: 0 done, 1 when the broker could not be reached or did not
// acknowledge within timeoutMs. Opens no serial or HTTP port.
int runMqttForget(const MqttOptions &options, const QString &id, int timeoutMs = 15000);
