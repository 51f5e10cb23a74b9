#include "tools/tsyn/watch/Screen.h"

#include <langinfo.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#define NCURSES_NOMACROS 1
#include <ncursesw/curses.h>

namespace tsyn {
namespace {

class CursesScreen : public Screen {
public:
    explicit CursesScreen(SCREEN* terminal) : terminal_(terminal) {
        cbreak();
        noecho();
        nodelay(stdscr, TRUE);
        curs_set(0);
    }
    ~CursesScreen() override {
        endwin();
        delscreen(terminal_);
    }
    CursesScreen(const CursesScreen&) = delete;
    CursesScreen& operator=(const CursesScreen&) = delete;

    std::size_t rows() const override { return static_cast<std::size_t>(getmaxy(stdscr)); }
    std::size_t columns() const override { return static_cast<std::size_t>(getmaxx(stdscr)); }
    bool isUtf8() const override { return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0; }

    /** erase, not clear: the latter would send the whole page anew. */
    void show(const std::vector<std::string>& lines) override {
        erase();
        int row = 0;
        for (const std::string& line : lines) {
            mvaddstr(row++, 0, line.c_str());
        }
        refresh();
    }

    int key() override {
        const int pressed = getch();
        if (pressed == KEY_RESIZE) {
            return kResized;
        }
        return pressed == ERR ? kNone : pressed;
    }

private:
    SCREEN* terminal_;
};

}  // namespace

std::unique_ptr<Screen> Screen::open(std::string& problem) {
    std::setlocale(LC_CTYPE, "");
    const char* const kind = std::getenv("TERM");
    if (isatty(STDIN_FILENO) == 0) {
        problem = "standard input is no terminal for keys";
        return nullptr;
    }
    SCREEN* const terminal = newterm(nullptr, stdout, stdin);
    if (terminal == nullptr) {
        problem = std::string("the terminal cannot be addressed (TERM=") +
                  (kind == nullptr ? "" : kind) + ")";
        return nullptr;
    }
    return std::make_unique<CursesScreen>(terminal);
}

}  // namespace tsyn
