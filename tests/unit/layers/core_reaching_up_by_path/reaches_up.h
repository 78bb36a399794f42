// Not compiled: a core header that reaches the API layer by a relative path,
// for the layer check to refuse.
#pragma once

#include "../../sso_api/sso_api_guard.h"
