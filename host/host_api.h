// Visibility marker for the host runtime classes whose inline members a protocol plug-in
// re-exports. Everything else in host/ is declared with the default visibility of the
// translation unit that includes it.
#pragma once

#define QX_HOST_EXPORTED_CLASS __attribute__((visibility("default")))
