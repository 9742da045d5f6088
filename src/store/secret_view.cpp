#include "store/secret_view.h"

namespace veltrancord {

secret_rule g_secret_rule;

}  // namespace veltrancord
