# Writes the page's files as a C++ source. Usage: cmake -D OUTPUT=FILE -D FOLDER=FOLDER -P EmbedPage.cmake
function(literal name result)
    set(text "")
    foreach(file IN LISTS ARGN)
        file(READ ${FOLDER}/${file} part)
        string(APPEND text "${part}")
    endforeach()
    set(${result} "const char* const ${name} = R\"page(${text})page\";\n" PARENT_SCOPE)
endfunction()

literal(kPageHtml html report.html)
literal(kPageCss css report.css)
literal(kPageScript script scale.js chart.js page.js)
file(WRITE ${OUTPUT} "#include \"tools/tsyn/plot/Page.h\"\n\nnamespace tsyn {\n\n"
     "${html}${css}${script}\n}  // namespace tsyn\n")
