# The macOS application bundle: included from the top-level CMakeLists.txt on Apple only.
#
#   cmake --build --preset default                    -> build/default/OrvantaMacToolkit.app (runs from the tree)
#   cmake --build --preset default --target bundle    -> the same bundle with Qt deployed into it, signed (ad
#                                                        hoc by default) with the Apple Events entitlement, checked

set(ORVANTA_BUNDLE_IDENTIFIER "com.orvanta.mactoolkit")
set(ORVANTA_ENTITLEMENTS "${PROJECT_SOURCE_DIR}/resources/mac/OrvantaMacToolkit.entitlements")

set_target_properties(orvanta-mac-toolkit PROPERTIES
    MACOSX_BUNDLE TRUE
    OUTPUT_NAME "OrvantaMacToolkit"
    MACOSX_BUNDLE_INFO_PLIST "${PROJECT_SOURCE_DIR}/resources/mac/Info.plist.in"
    MACOSX_BUNDLE_BUNDLE_NAME "Orvanta Mac Toolkit"
    MACOSX_BUNDLE_GUI_IDENTIFIER "${ORVANTA_BUNDLE_IDENTIFIER}"
    MACOSX_BUNDLE_SHORT_VERSION_STRING "${PROJECT_VERSION}"
    MACOSX_BUNDLE_BUNDLE_VERSION "${PROJECT_VERSION}"
    MACOSX_BUNDLE_COPYRIGHT "Orvanta")

# The diagnostic scripts go to Contents/Resources/scripts, where the application looks for them, and must
# stay executable there: the runner refuses a script the user may not execute. Copied after every build of
# the application (only when changed), then marked executable whatever the copy kept.
file(GLOB ORVANTA_SCRIPTS CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/resources/scripts/*.zsh")
set(ORVANTA_BUNDLE_SCRIPTS "$<TARGET_BUNDLE_CONTENT_DIR:orvanta-mac-toolkit>/Resources/scripts")
set(scriptCommands COMMAND "${CMAKE_COMMAND}" -E make_directory "${ORVANTA_BUNDLE_SCRIPTS}")
foreach(script IN LISTS ORVANTA_SCRIPTS)
    get_filename_component(scriptName "${script}" NAME)
    list(APPEND scriptCommands
        COMMAND "${CMAKE_COMMAND}" -E copy_if_different "${script}" "${ORVANTA_BUNDLE_SCRIPTS}/${scriptName}"
        COMMAND chmod 755 "${ORVANTA_BUNDLE_SCRIPTS}/${scriptName}")
endforeach()
add_custom_target(bundle-scripts ALL ${scriptCommands} DEPENDS ${ORVANTA_SCRIPTS} VERBATIM)
add_dependencies(bundle-scripts orvanta-mac-toolkit)

# The logo as the bundle's icon, when the build machine can make an .icns from it.
set(ORVANTA_LOGO "${PROJECT_SOURCE_DIR}/resources/Logo.svg")
find_program(ORVANTA_RSVG_CONVERT rsvg-convert)
find_program(ORVANTA_ICONUTIL iconutil)
if(EXISTS "${ORVANTA_LOGO}" AND ORVANTA_RSVG_CONVERT AND ORVANTA_ICONUTIL)
    set(iconset "${CMAKE_CURRENT_BINARY_DIR}/AppIcon.iconset")
    set(icns "${CMAKE_CURRENT_BINARY_DIR}/AppIcon.icns")
    set(iconCommands COMMAND "${CMAKE_COMMAND}" -E make_directory "${iconset}")
    foreach(side 16 32 128 256 512)
        math(EXPR double "${side} * 2")
        list(APPEND iconCommands
            COMMAND "${ORVANTA_RSVG_CONVERT}" -w ${side} -h ${side} -o "${iconset}/icon_${side}x${side}.png"
                    "${ORVANTA_LOGO}"
            COMMAND "${ORVANTA_RSVG_CONVERT}" -w ${double} -h ${double}
                    -o "${iconset}/icon_${side}x${side}@2x.png" "${ORVANTA_LOGO}")
    endforeach()
    add_custom_command(OUTPUT "${icns}"
        ${iconCommands}
        COMMAND "${ORVANTA_ICONUTIL}" -c icns -o "${icns}" "${iconset}"
        DEPENDS "${ORVANTA_LOGO}"
        VERBATIM)
    target_sources(orvanta-mac-toolkit PRIVATE "${icns}")
    set_source_files_properties("${icns}" PROPERTIES MACOSX_PACKAGE_LOCATION "Resources")
    set_target_properties(orvanta-mac-toolkit PROPERTIES MACOSX_BUNDLE_ICON_FILE "AppIcon")
endif()

# Qt's frameworks and plug-ins copied into the bundle, then signed inside-out (ad hoc unless
# ORVANTA_CODESIGN_IDENTITY names a Developer ID), then checked as a user's Mac would load it. The release
# workflow runs the same steps through tools/macos-bundle.sh.
set(ORVANTA_CODESIGN_IDENTITY "-" CACHE STRING "codesign identity for the 'bundle' target; - signs ad hoc")
get_filename_component(ORVANTA_QT_BIN_HINT "${Qt6_DIR}/../../../bin" ABSOLUTE)
find_program(ORVANTA_MACDEPLOYQT macdeployqt HINTS "${ORVANTA_QT_BIN_HINT}" "${QT6_INSTALL_PREFIX}/bin")
if(ORVANTA_MACDEPLOYQT)
    set(bundleScript "${PROJECT_SOURCE_DIR}/tools/macos-bundle.sh")
    add_custom_target(bundle
        COMMAND "${CMAKE_COMMAND}" -E env "MACDEPLOYQT=${ORVANTA_MACDEPLOYQT}"
                "${bundleScript}" deploy "$<TARGET_BUNDLE_DIR:orvanta-mac-toolkit>"
        COMMAND "${CMAKE_COMMAND}" -E env "CODESIGN_IDENTITY=${ORVANTA_CODESIGN_IDENTITY}"
                "${bundleScript}" sign "$<TARGET_BUNDLE_DIR:orvanta-mac-toolkit>" "${ORVANTA_ENTITLEMENTS}"
        COMMAND "${bundleScript}" check "$<TARGET_BUNDLE_DIR:orvanta-mac-toolkit>" ${CMAKE_OSX_ARCHITECTURES}
        COMMENT "Deploying Qt into the bundle, signing and checking it"
        VERBATIM)
    add_dependencies(bundle orvanta-mac-toolkit bundle-scripts)
else()
    message(STATUS "macdeployqt not found: the 'bundle' target is not available")
endif()
