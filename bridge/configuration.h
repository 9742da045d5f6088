// What the bridge is told by root: its broker, its keys, what it tells and what it may write.
#pragma once

#include <veltrancord/client.h>

#include <string>

#include "path_rules.h"
#include "schema/usual_directory.h"
#include "signature.h"

namespace veltrancord::bridge {

inline constexpr const char* default_configuration = "/etc/veltrancord-bridge/bridge.conf";

struct configuration {
    // A name or address, with TLS and certificates. Without them only this machine itself: a
    // loopback address, or the path of a socket with port 0.
    std::string host;
    int port = 8883;
    int keep_alive = 60;  // seconds
    // Seconds between dropping the connection, when a change is tried, and making the new one: what
    // the change starts, as to set a gateway, takes its time.
    int settle = 3;
    int report_interval = 5;  // seconds between two reports of a document

    std::string ca;  // files, for the TLS library; all three or none
    std::string certificate;
    std::string private_key;

    std::string device;  // the common name of the certificate, where there is one

    operator_keys keys;
    path_rules reported;  // what is told, beside what may be written
    path_rules writable;

    std::string service_socket;  // empty: as the C library finds it
    std::string documents = VELTRANCORD_DEFAULT_DIRECTORY;
    std::string log_file = "/mnt/database/eventlog/log";
    std::string state = "/var/lib/veltrancord-bridge";  // on flash
    std::string memory = "/run/veltrancord-bridge";
    std::string descriptions = schema::usual_directory();  // of settings

    // Whether it takes changes at all.
    [[nodiscard]] bool may_write() const { return !keys.empty() && !writable.empty(); }
    [[nodiscard]] bool has_tls() const { return !certificate.empty(); }
};

// Reads the file and those that it names: the operators' keys, the list of what may be written, and
// the certificate. All of them must be root's alone (trusted_file.h), but for the CA, the
// certificate and its key, which are the TLS library's to read.
//
// Return: why it cannot be used; empty with the configuration.
[[nodiscard]] std::string load_configuration(const std::string& path, configuration& settings);

}  // namespace veltrancord::bridge
