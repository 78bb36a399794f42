// Not compiled: a core file that includes an API-layer header by name, for
// the layer check to refuse.
#include <sso_api/sso_api.h>

#include "SSOAPIUtil.h"
#include "sso_api_private.h"
