#include "Motion.h"

namespace qs {

Motion::Motion(QObject* parent)
    : QObject(parent), reduced_(qEnvironmentVariableIntValue("QUERNSTEAD_REDUCE_MOTION") == 1) {}

void Motion::setReduced(bool reduced) {
    if (reduced_ == reduced)
        return;
    reduced_ = reduced;
    emit changed();
}

} // namespace qs
