#pragma once

// Marks what the shared library offers. Everything else stays inside.
#define QVACORE_API [[gnu::visibility("default")]]
