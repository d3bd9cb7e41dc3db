#!/bin/sh
# public_names.sh ROOT: prints the names of all classes, plain records, public functions, constants and types of the
# public headers.
cd "$1" || exit
cat cmn/include/*.h qtools/qstring/Q_strings.h qtools/qstring/Q_sscanf.h qtools/qstring/Q_vfscanf.h \
  qtools/qstring/Q_strtoimax.h qtools/qstring/Q_strtoumax.h | awk '
  /^ *\/\*/ { comment = 1 }
  comment { if (/\*\//) comment = 0; next }
  { sub(/\/\/.*/, "") }
  /^(typedef struct|class|struct) / && !/;/ {
    line = $0
    sub(/^(typedef struct|class|struct) (KELP_CMN_API )?/, "", line)
    sub(/[ :].*/, "", line)
    class = line
    hidden = 0
    print class
  }
  /^ (private|protected):/ { hidden = 1 }
  /^ public:/ || /^}/ { hidden = 0 }
  /^(using|constexpr int) [A-Za-z]+ =/ { sub(/^(using|constexpr int) /, ""); sub(/ .*/, ""); print; next }
  /operator|extern template|^#/ { next }
  (/^  [A-Za-z]/ || /^KELP_CMN_API/) && !hidden && match($0, /[A-Za-z_][A-Za-z0-9_]*\(/) {
    name = substr($0, RSTART, RLENGTH - 1)
    if (name != class && name != "if") print name
  }
' | sort -u
