#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tsyn {

/** A terminal that is written to as a whole, of which only what changed is sent. The terminal is
 *  restored with its end. */
class Screen {
public:
    /** Takes the terminal of standard input and output. Null when it cannot be had; problem then
     *  tells why. */
    static std::unique_ptr<Screen> open(std::string& problem);

    Screen() = default;
    virtual ~Screen() = default;
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    virtual std::size_t rows() const = 0;
    virtual std::size_t columns() const = 0;
    /** Whether it shows UTF-8, which the locale tells. */
    virtual bool isUtf8() const = 0;

    virtual void show(const std::vector<std::string>& lines) = 0;

    /** A key that was pressed, kResized when the terminal has another size, kNone otherwise. */
    virtual int key() = 0;

    static constexpr int kNone = -1;
    static constexpr int kResized = -2;
};

}  // namespace tsyn
