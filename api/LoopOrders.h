#pragma once

/* What the host's threads tell the event loop. Without a loop nothing happens. */
namespace loop_orders {

/** Makes the descriptor on its first call and forgets earlier orders. Before the loop's thread is
 *  created. */
void open();

/** Readable from an order on until acknowledge; -1 before open. */
int descriptor();

/** Has the loop look at runningState. Any thread, as all that follow. */
void notice();

/** Has the loop send at once and begin its periods anew. */
void sendNow();

/** Has the loop end. */
void end();

struct Orders {
    bool end;
    bool sendNow;
};

/** By the loop once the descriptor is readable, before it takes the orders. */
void acknowledge();

/** The orders since the last call; by the loop. An end stays ordered. */
Orders take();

}  // namespace loop_orders
