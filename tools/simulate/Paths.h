#pragma once

/** What a run's programs see of the file system: the same names in every run, wherever the results
 *  go, so that whatever prints one of them prints the same. */
namespace simulate {

constexpr const char* kPrivateFolder = "/dev/shm";     /**< mounted anew for each run */
constexpr const char* kStatePath = "/dev/shm/cards";   /**< of the virtual cards */
constexpr const char* kResultsFolder = "/dev/shm/out"; /**< leads to the folder of the results */

}  // namespace simulate
