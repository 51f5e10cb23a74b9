#pragma once

namespace tsyn {

/** The files beside this one, as the build found them. */
extern const char* const kPageHtml;
extern const char* const kPageCss;
extern const char* const kPageScript;

}  // namespace tsyn
