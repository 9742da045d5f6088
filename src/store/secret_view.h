// Which secrets the reply of the command that is being served may show.
//
// Each place where the store hands a value to a reply asks here, so that no reading command can
// forget to. Whoever guards the service sets the rule for the time of one command; without one, as
// usual, everything is shown. Values that the service looks up for itself, as for a user's group,
// are no reply's and are not asked for with a rule set. Server thread only.
#pragma once

#include <tinyxml.h>

#include <string_view>

#include "store/value.h"

namespace veltrancord {

// Tells by the document's name. `may_show` null: all is shown.
struct SecretRule {
    bool (*may_show)(void* context, std::string_view document) = nullptr;
    void* context = nullptr;
};

// The rule of the command that is being served.
extern SecretRule g_secret_rule;

// Sets a rule for as long as it lives.
class SecretView {
  public:
    explicit SecretView(const SecretRule& rule) noexcept { g_secret_rule = rule; }
    SecretView(const SecretView&) = delete;
    SecretView& operator=(const SecretView&) = delete;
    ~SecretView() { g_secret_rule = {}; }
};

// Whether the value of what bears this name, `element` itself or an attribute of it, must be shown
// as empty.
[[nodiscard]] inline bool IsHiddenSecret(const TiXmlNode& element, std::string_view name) {
    if (g_secret_rule.may_show == nullptr || !IsSecretName(name)) {
        return false;
    }
    const TiXmlDocument* const document = element.GetDocument();
    return document == nullptr ||
           !g_secret_rule.may_show(g_secret_rule.context, document->ValueStr());
}

}  // namespace veltrancord
