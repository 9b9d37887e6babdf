# Makes a page of section 3, for scdoc, of a public header: the chapters of its first comment, and the
# functions that it declares.
#   awk -f header-page.awk include/vantro/NAME.h
function escape(text) { gsub(/[\\*_`]/, "\\\\&", text); return text }
function fence(on) { if (on != fenced) { print "```"; fenced = on } }

FNR == 1 {
    name = FILENAME
    gsub(/^.*\/|\.h$/, "", name)
    print "vantro-" name "(3)\n"
}
/^\/\*\*/ && !begun { begun = inside = 1; next }
inside && /^ \*\// { inside = 0; fence(0); next }
inside && /@file/ { next }
inside {
    line = substr($0, 4)
    if (line ~ /^    /) {
        fence(1)
        sub(/^    /, "", line)
        print line
        next
    }
    if (line == "" && fenced) { held = held "\n"; fence(0); print ""; next }
    fence(0)
    if (!named) { # the first sentence, which may take several lines, is what the page is called
        sentence = sentence (sentence == "" ? "" : " ") line
        if (!match(sentence, /[.:]( |$)/)) next
        named = 1
        print "# NAME\n\nvantro-" name " - " escape(tolower(substr(sentence, 1, 1)) substr(sentence, 2, RSTART - 2))
        print "\n# SYNOPSIS\n\n*#include <vantro/" name ".h>*\n\ncc ... $(pkg-config --cflags --libs vantro)\n\n# DESCRIPTION\n"
        line = substr(sentence, RSTART + 2)
        if (line == "") next
        line = toupper(substr(line, 1, 1)) substr(line, 2)
    }
    if (blank && match(line, /^[A-Z][a-z]+( [a-z]+)?\. /)) {
        print "# " toupper(substr(line, 1, RLENGTH - 2)) "\n"
        line = substr(line, RLENGTH + 1)
    }
    blank = line == ""
    item = line ~ /^ - /
    if (item && !listed) print ""
    listed = item || (listed && line ~ /^   /)
    sub(/^   /, "  ", line)
    sub(/^ - /, "- ", line)
    print escape(line)
    next
}
/^(VANTRO_API|VANTRO_PLATFORM_API) / { sub(/^VANTRO_[A-Z_]* /, ""); declaring = 1 }
declaring {
    sub(/^ +/, "    ")
    functions = functions $0 "\n"
    if (/;$/) declaring = 0
}
END { print "\n# FUNCTIONS\n\nThe header documents the parameters, the result and the errors of each function.\n\n```\n" functions "```\n\n# SEE ALSO\n\n*vantrod*(1), *vantroctl*(1)" }
