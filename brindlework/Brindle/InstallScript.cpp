#include "Brindle/InstallScript.h"

namespace brindle::InstallScript {

std::string text() {
    return R"script(PID="$1"; SRC="$2"; DEST="$3"; RELAUNCH="$4"; PROGRAM="$5"
i=0; while kill -0 "$PID" 2>/dev/null && [ $i -lt 600 ]; do sleep 0.1; i=$((i+1)); done
OLD="$DEST.brindle-old"; rm -rf "$OLD"
if mv "$DEST" "$OLD" && cp -a "$SRC" "$DEST"; then rm -rf "$OLD"; else rm -rf "$DEST"; mv "$OLD" "$DEST"; fi
rm -rf "$(dirname "$SRC")"
[ "$RELAUNCH" = 1 ] && "$DEST/$PROGRAM" >/dev/null 2>&1 </dev/null &
exit 0
)script";
}

std::vector<std::string> arguments(pid_t waitFor, const std::string& staged,
                                   const std::string& installed, bool relaunch,
                                   const std::string& executable) {
    return {"-c",   text(),    "brindle-update",     std::to_string(waitFor),
            staged, installed, relaunch ? "1" : "0", executable};
}

} // namespace brindle::InstallScript
