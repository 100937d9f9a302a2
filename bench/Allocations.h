#pragma once

/// How often operator new was called in this process.
[[nodiscard]] long allocationCount();
