// Marks what the containers share across every library of the process.
#pragma once

#define KV_BASE_API __attribute__((visibility("default")))
