#pragma once

// Marks what the shared library offers. Everything else stays inside.
#define QFL_API [[gnu::visibility("default")]]
