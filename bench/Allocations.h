#pragma once

/// Returns how often operator new was called in this process.
[[nodiscard]] long allocationCount();
