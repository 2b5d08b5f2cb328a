#pragma once

#include "core/wqstring.h"

/// Address lists: IPv4 addresses and ranges "first-last" separated by ','. Any thread.

/// 1 for a digit, '.', '-' or ','; else 0.
int islistsetchar(char c);
/// Takes the next item off the front of `list`. `first` and `last` (host byte order) are 0 when
/// absent or invalid; an invalid first address is left in the list. `err` tells what is invalid.
/// Not called by the agent itself.
void getitem(String& list, unsigned& first, unsigned& last, String& err);
/// 1 when the list holds the address (dotted, or in network byte order), else 0. `err` holds the
/// list's fault, if any; a list with a fault is used up to the fault. An invalid dotted address
/// gives 0 and leaves `err`. The dotted form is not called by the agent itself.
int IPAllowed(const char* address, const String& list, String& err);
int IPAllowed(unsigned address, const String& list, String& err);

/// True when `dotted` occurs anywhere in the effective filter text.
/// Deliberate: a containment test, so an address that is part of a listed one is admitted.
bool FilterAdmits(const char* dotted, const String& effectiveFilter);
