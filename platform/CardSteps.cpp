#include "platform/CardSteps.h"

CardSteps cardSteps{sendFrameAfterPhcRead, getTxTimestamp, receiveFrameShortly, narrowestOf25};
