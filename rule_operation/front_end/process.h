// Settings that hold for the whole process.
#pragma once

// Sets up memory, timers and the last line of defence. Called once, before anything else.
void set_up_process();
