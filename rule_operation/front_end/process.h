// Settings of the whole process.
#pragma once

// Sets up the allocator, the timer slack and the terminate handler. Called once, before anything
// else.
void set_up_process();
