// How long a batch runner waits for a partial batch to fill, in durations of its last run.
#pragma once

// Taken from the environment variable of this name at load time; 1 when it is not set.
extern const float nolk_batch_wait_factor;
