// KV_AIDS_API: marks what libKvSelectContextAids exports. Everything else is hidden.
#pragma once

#define KV_AIDS_API __attribute__((visibility("default")))
