# The .deb: the two programs, the desktop entry, the icons and the metainfo, depending on
# Debian's own packages. Shared libraries are found by dpkg-shlibdeps; the QML modules the
# window imports are loaded at run time, so they are named here.
set(CPACK_GENERATOR "DEB")
set(CPACK_PACKAGE_NAME "quernstead")
set(CPACK_PACKAGE_VENDOR "Quernstead")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "An archive vault for your email")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Quernstead developers")
set(CPACK_DEBIAN_PACKAGE_SECTION "mail")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "qml6-module-qtquick, qml6-module-qtquick-controls, qml6-module-qtquick-templates, \
qml6-module-qtquick-layouts, qml6-module-qtquick-dialogs, qml6-module-qtquick-window, \
qml6-module-qtquick-shapes, qml6-module-qt-labs-folderlistmodel, qml6-module-qtqml, \
qml6-module-qtqml-models, qml6-module-qtqml-workerscript, qml6-module-qtwebengine")
# Passwords live in the Secret Service; any desktop's keyring will do.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "gnome-keyring | kwalletmanager")
include(CPack)
