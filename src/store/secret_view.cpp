#include "store/secret_view.h"

namespace veltrancord {

SecretRule g_secret_rule;

}  // namespace veltrancord
