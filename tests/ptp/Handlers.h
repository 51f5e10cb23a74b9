#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "api/InterfaceDataManager.h"
#include "include/gPtpTimeData.h"
#include "ptp/clockitems.h"
#include "ptp/ptpclass.h"
#include "tests/ptp/FakePlatform.h"
#include "tests/support/Sandbox.h"
#include "tests/support/StdoutCapture.h"

/** Message handlers on the fake platform, with an empty port table, a zeroed instance block and a
 *  zeroed record in a shared segment of the test's own. */
class Handlers : public ::testing::Test {
protected:
    static void SetUpTestSuite();

    Handlers();
    ~Handlers() override;

    /** The object that the input pump would hand to the handlers. */
    std::unique_ptr<PTPMessage> received(const std::vector<unsigned char>& frame,
                                         unsigned long long rxNs = 0);

    /** Result of a received message's handler. */
    unsigned int handle(const std::vector<unsigned char>& frame, unsigned long long rxNs = 0);

    /** As handle, for the messages that make the handler read both clocks first. */
    unsigned int handleWithExtTime(const std::vector<unsigned char>& frame,
                                   unsigned long long rxNs = 0);

    InstanceBlock& block;
    gPtpTimeDataStruct& record;
    NetworkService<sock> service;
};

/** Writes a big-endian field into a message. */
void setField(std::vector<unsigned char>& message, std::size_t offset, std::size_t width,
              unsigned long long value);

/** Writes seconds and nanoseconds at offset 34. */
void setTimestamp(std::vector<unsigned char>& message, unsigned long long ns);

/** The 236 bytes of a record. */
std::string image(const gPtpTimeDataStruct& record);
