#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "base/Extended80.h"
#include "include/gPtpTimeQuality.h"

constexpr long long kLocalNs = 1767225600000000123LL;
constexpr long long kSystemOffsetNs = 77;
constexpr long long kAnchorNs = kLocalNs + kSystemOffsetNs;
constexpr long long kSecondNs = 1000000000;

/** A segment in the place of a daemon's, which the test writes. */
class Segment {
public:
    explicit Segment(std::string name, off_t size = kSharedSegmentSize)
        : path_("/dev/shm/" + std::move(name)) {
        make(size);
    }
    ~Segment() {
        unmap();
        unlink(path_.c_str());
        unlink((path_ + ".lock").c_str());
    }
    Segment(const Segment&) = delete;
    Segment& operator=(const Segment&) = delete;

    /** As a daemon that finds none: another file of the same name. */
    void makeAnew() {
        unmap();
        unlink(path_.c_str());
        make(kSharedSegmentSize);
    }

    gPtpTimeDataStruct& record() {
        return *reinterpret_cast<gPtpTimeDataStruct*>(bytes_ + kSharedRecordOffset);
    }

    gPtpTimeQuality quality() {
        gPtpTimeQuality quality{};
        std::memcpy(&quality, record().unused172, sizeof quality);
        return quality;
    }
    void setQuality(const gPtpTimeQuality& quality) {
        std::memcpy(record().unused172, &quality, sizeof quality);
    }

    /** As a deployed daemon leaves it. */
    void publishLine(long double masterRate = 1 - 37e-6L, long double phcRate = 1 + 11e-6L) {
        record().localTime = kLocalNs;
        record().masterOffset = -1500000000;
        record().systemOffset = kSystemOffsetNs;
        storeExtended(record().rateRatio1, masterRate);
        storeExtended(record().rateRatio2, phcRate);
    }

    /** As one with a profile. */
    void publishBounded(unsigned char state = TSYN_STATE_SYNCHRONISED) {
        publishLine();
        gPtpTimeQuality told{};
        told.magic = kTimeQualityMagic;
        told.layout = kTimeQualityLayout;
        told.state = state;
        told.sequence = 4;
        told.boundNs = 100;
        told.boundGrowthPpb = 200;
        told.ownerPid = static_cast<unsigned int>(getpid());
        told.voidAfterNs = kAnchorNs + 60 * kSecondNs;
        told.stepCount = 3;
        setQuality(told);
    }

    const std::string& path() const { return path_; }

private:
    void make(off_t size) {
        const int file = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
        EXPECT_GE(file, 0) << path_;
        EXPECT_EQ(0, ftruncate(file, size));
        void* const mapped =
            mmap(nullptr, kSharedSegmentSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        EXPECT_NE(MAP_FAILED, mapped);
        bytes_ = static_cast<unsigned char*>(mapped);
        close(file);
    }
    void unmap() { munmap(bytes_, kSharedSegmentSize); }

    std::string path_;
    unsigned char* bytes_ = nullptr;
};
