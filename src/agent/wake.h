#pragma once

/// Opens the descriptor below. Main thread, before any other thread or handler may wake it.
void OpenWake();
/// Readable from a WakeMainLoop on until ClearWake: the main loop waits for it too.
int WakeDescriptor();
/// Ends the main loop's present wait at once, or its next one. Any thread, also from a handler;
/// errno stays as it was.
void WakeMainLoop();
/// Makes the descriptor unreadable again. Main thread.
void ClearWake();
