#include "broker_link.h"

#include <mosquitto.h>

#include <cerrno>
#include <cstring>

namespace veltrancord::bridge {
namespace {

constexpr int at_least_once = 1;
constexpr int require_certificate = 1;  // SSL_VERIFY_PEER

std::string reason_of(int code) {
    return code == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(code);
}

}  // namespace

void broker_link::link_releaser::operator()(mosquitto* link) const {
    mosquitto_destroy(link);
}

broker_link::broker_link(const configuration& settings, broker_listener& listener)
    : settings_(settings), listener_(listener) {
    mosquitto_lib_init();
}

broker_link::~broker_link() {
    link_.reset();
    mosquitto_lib_cleanup();
}

int broker_link::prepare(const std::string& will_topic, const std::string& will) {
    mosquitto* const link = link_.get();
    mosquitto_connect_callback_set(link, handle_connect);
    mosquitto_message_callback_set(link, handle_message);
    mosquitto_publish_callback_set(link, handle_publish);
    int code = mosquitto_will_set(link, will_topic.c_str(), static_cast<int>(will.size()),
                                  will.data(), at_least_once, true);
    if (code == MOSQ_ERR_SUCCESS && settings_.has_tls()) {
        code = mosquitto_tls_set(link, settings_.ca.c_str(), nullptr, settings_.certificate.c_str(),
                                 settings_.private_key.c_str(), nullptr);
        if (code == MOSQ_ERR_SUCCESS) {
            code = mosquitto_tls_opts_set(link, require_certificate, "tlsv1.2", nullptr);
        }
    }
    return code;
}

bool broker_link::open(const std::string& will_topic, const std::string& will) {
    drop();
    link_.reset(mosquitto_new(settings_.device.c_str(), true, this));
    int code = link_ != nullptr ? prepare(will_topic, will) : static_cast<int>(MOSQ_ERR_NOMEM);
    if (code == MOSQ_ERR_SUCCESS) {
        code = mosquitto_connect(link_.get(), settings_.host.c_str(), settings_.port,
                                 settings_.keep_alive);
    }
    if (code != MOSQ_ERR_SUCCESS) {
        trouble_ = reason_of(code);
        drop();
    }
    return is_open();
}

void broker_link::drop() {
    link_.reset();
    connected_ = false;
}

int broker_link::descriptor() const {
    return mosquitto_socket(link_.get());
}

bool broker_link::wants_to_write() const {
    return mosquitto_want_write(link_.get());
}

bool broker_link::work() {
    const int code = mosquitto_loop(link_.get(), 0, 1);
    if (code != MOSQ_ERR_SUCCESS) {
        if (trouble_.empty()) {
            trouble_ = reason_of(code);
        }
        drop();
    }
    return is_open();
}

int broker_link::publish(const std::string& topic, std::string_view payload, bool retained) {
    int message = 0;
    const int code =
        mosquitto_publish(link_.get(), &message, topic.c_str(), static_cast<int>(payload.size()),
                          payload.data(), at_least_once, retained);
    return code == MOSQ_ERR_SUCCESS ? message : 0;
}

void broker_link::subscribe(const std::string& topic) {
    (void)mosquitto_subscribe(link_.get(), nullptr, topic.c_str(), at_least_once);
}

void broker_link::handle_connect(mosquitto* /*link*/, void* self, int code) {
    auto* const owner = static_cast<broker_link*>(self);
    if (code != 0) {
        owner->trouble_ = mosquitto_connack_string(code);  // the broker ends the connection
        return;
    }
    owner->trouble_.clear();
    owner->connected_ = true;
    ++owner->number_;
    owner->listener_.on_connected();
}

void broker_link::handle_message(mosquitto* /*link*/, void* self,
                                 const mosquitto_message* message) {
    const auto* const payload = static_cast<const char*>(message->payload);
    static_cast<broker_link*>(self)->listener_.on_message(
        message->topic, {payload, static_cast<std::size_t>(message->payloadlen)});
}

void broker_link::handle_publish(mosquitto* /*link*/, void* self, int message) {
    static_cast<broker_link*>(self)->listener_.on_acknowledged(message);
}

}  // namespace veltrancord::bridge
