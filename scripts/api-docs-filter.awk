# api-docs-filter.awk
# Shows Doxygen the plain comments of a public header as documentation:
#
#   - the comment that opens a file is the file's
#   - a comment in front of a declaration is that of every declaration up to the next blank line
#     or comment; one behind it is its own
#   - "// -- title" opens a group of members that lasts to the next one or to the end of the class
#   - comments inside functions stay comments
#   - deleted functions and types that are only named are left out
#
# Relies on clang-format's indentation: what is opened ends with a brace below its first column.

# A line of a comment as documentation: nothing in it is markup, except that what is indented by
# four more is code. Doxygen leaves quoted text alone by itself.
function documented(text,    parts, count, i) {
    if (text !~ /^     /) {
        count = split(text, parts, "\"")
        text = ""
        for (i = 1; i <= count; i++) {
            if (i % 2 == 1) {
                gsub(/[<>#@]/, "\\\\&", parts[i])
            }
            text = text (i > 1 ? "\"" : "") parts[i]
        }
    }
    return "///" text
}

{ column = match($0, /[^ ]/) }

in_macro { in_macro = /\\$/; print; next }
/^#define/ { in_macro = /\\$/; comment = ""; print; next }

body { # of a function
    if (column == body && /^ *}/) {
        body = 0
    }
    print
    next
}

/^ *\/\/ -- / {
    column_of_group = column
    title = "/** \\name " substr($0, column + 6)
    next
}

/^ *\/\// {
    text = substr($0, column + 2)
    if (title) {
        title = title "\n" text
        next
    }
    comment = (is_in_comment ? comment "\n" : "") documented(text)
    is_in_comment = is_new = 1
    print documented(text)
    next
}

title {
    print (group ? "/**@}*/ " : "") title " */ /**@{*/"
    group = column_of_group
    title = comment = ""
}

{ is_in_comment = 0 }

/^#pragma once/ { print "/// \\file"; comment = "" }
/^$/ || /^#/ { comment = ""; print; next }
/= delete;$/ || /^ *(struct|class) [A-Za-z]+;/ { next }

{
    has_own = sub(/ \/\/ /, " ///< ")
    code = $0
    sub(/ *\/\/.*/, "", code)
}

group && column < group && /^ *}/ {
    printf "/**@}*/ "
    group = 0
}

declaration == "" {
    if (comment && !is_new && !has_own && code !~ /^ *}/) {
        print comment
    }
    start = column
    is_new = 0
}

{
    print
    declaration = declaration " " code
    is_scope = declaration ~ /^ *(template <.*> )? *(namespace|class|struct|enum|union) /
    if (code ~ /{$/ && is_scope) {
        is_enum = declaration ~ /^ *enum /
        comment = declaration = ""
    } else if (code ~ /{$/) {
        body = start
        declaration = ""
    } else if (code ~ /^ *}/) {
        is_enum = 0
        comment = declaration = ""
    } else if (code ~ /[;}:]$/ || is_enum) {
        declaration = ""
    }
}
