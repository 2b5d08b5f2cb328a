#pragma once

#include <stddef.h>

/// Raises the soft descriptor limit to the hard one and tells the child runner the original, which
/// children get back. Main thread.
void RaiseDescriptorLimit();
/// Puts the limit back that the process was started with.
void RestoreDescriptorLimit();
/// Descriptors the process may have open.
size_t DescriptorLimit();
