#pragma once

/** Runs the configured role for one interface in the calling thread until Destroy: one loop that
 *  sleeps until a frame, an order of the host, a change of the link or the next deadline. Returns
 *  early when there is no such interface and nobody asked to wait for it. */
void runEventRole(const char* ifName);
