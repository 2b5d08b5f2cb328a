#include "config/status.h"

constinit TAgentStatus AgentStatus = {.AgentVersion = QOV_RELEASE};

constinit std::mutex thread_mutex;
