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
#include "tests/ptp/Messages.h"
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

/** Expects one log line and nothing else: an error of a message handler or constructor. */
void expectError(const std::string& output, const std::string& function, const std::string& text);

/** The 236 bytes of a record. */
std::string image(const gPtpTimeDataStruct& record);
