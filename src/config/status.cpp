#include "config/status.h"

constinit TAgentStatus AgentStatus = {
    "WqVxQoStRec",
    1,
    0,
    "WQ Orvane",
    "Linux (Red Hat, Mandrake, SuSE)",
    QOV_RELEASE,
    "The qov developers (https://qov.invalid)",
    0,
    0,
    0,
    0,
    0,
};

constinit std::mutex thread_mutex;
