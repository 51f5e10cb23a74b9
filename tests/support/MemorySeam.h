#pragma once

/** While true, every allocation that answers null instead of throwing fails. The library allocates
 *  the instance and what it keeps of SOCK that way. */
extern bool memoryExhausted;
