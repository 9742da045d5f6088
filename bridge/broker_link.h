// One connection to the broker after the other.
//
// Each is a new object of the MQTT library, so that nothing of an earlier one is left: no address
// that was looked up once, no queue of messages that goes on growing while there is no connection.
// What must not be lost is the caller's to send again.
//
// Used by one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "configuration.h"

struct mosquitto;
struct mosquitto_message;

namespace veltrancord::bridge {

// Called from within work().
class broker_listener {
  public:
    broker_listener() = default;
    broker_listener(const broker_listener&) = delete;
    broker_listener& operator=(const broker_listener&) = delete;
    virtual ~broker_listener() = default;
    virtual void on_connected() = 0;
    virtual void on_message(std::string_view topic, std::string_view payload) = 0;
    virtual void on_acknowledged(int message) = 0;
};

class broker_link {
  public:
    // Borrows both for its life.
    broker_link(const configuration& settings, broker_listener& listener);
    ~broker_link();
    broker_link(const broker_link&) = delete;
    broker_link& operator=(const broker_link&) = delete;

    // Drops the connection that there is, looks the broker up and connects, which may take as long
    // as the system lets it. `will` is what the broker publishes, retained, when the connection
    // ends. Return: whether there is one now; the broker's word is still to come (on_connected).
    [[nodiscard]] bool open(const std::string& will_topic, const std::string& will);

    // Ends the connection as a failure would, so that the broker tells its will.
    void drop();

    // Whether there is a connection, be it that the broker has not answered yet.
    [[nodiscard]] bool is_open() const { return link_ != nullptr; }
    [[nodiscard]] bool is_connected() const { return connected_; }
    // Counts up with each connection that the broker has accepted, from 1.
    [[nodiscard]] uint64_t number() const { return number_; }

    // For poll(): the descriptor, and whether there is something to be written.
    [[nodiscard]] int descriptor() const;
    [[nodiscard]] bool wants_to_write() const;

    // Reads, writes and keeps alive what can be without waiting. Return: false when the connection
    // has ended.
    [[nodiscard]] bool work();

    // Hands a message over, to be acknowledged by the broker. Return: its number, above 0; 0 where
    // it could not be taken.
    int publish(const std::string& topic, std::string_view payload, bool retained);
    void subscribe(const std::string& topic);

    // Why the last connection could not be made, or ended.
    [[nodiscard]] const std::string& trouble() const { return trouble_; }

  private:
    struct link_releaser {
        void operator()(mosquitto* link) const;
    };

    static void handle_connect(mosquitto* link, void* self, int code);
    static void handle_message(mosquitto* link, void* self, const mosquitto_message* message);
    static void handle_publish(mosquitto* link, void* self, int message);
    [[nodiscard]] int prepare(const std::string& will_topic, const std::string& will);

    const configuration& settings_;
    broker_listener& listener_;
    std::unique_ptr<mosquitto, link_releaser> link_;
    bool connected_ = false;
    uint64_t number_ = 0;
    std::string trouble_;
};

}  // namespace veltrancord::bridge
