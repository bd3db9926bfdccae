// The one marker for what leaves a shared object. Everything else is built
// with hidden visibility, so a name that lacks this marker stays inside.
#pragma once

#define ORVANEST_EXPORT __attribute__((visibility("default")))
