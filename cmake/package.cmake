# What an installation holds, and the target `package`: two Debian packages in the build folder.
#   qov         the agent, its service, helpers and documents
#   qov-plugin  qovctl and check_qov; the agent's package depends on it
# The paths are a Debian system's: the service and the sample configuration name them. Two builds with
# one SOURCE_DATE_EPOCH give the same bytes, whatever folders they are made in.

set(QOV_RELEASE "1.29j" CACHE STRING "Version that the agent tells and the packages carry")
set_source_files_properties(src/config/status.cpp PROPERTIES COMPILE_DEFINITIONS
                                                             "QOV_RELEASE=\"${QOV_RELEASE}\"")
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_options(qov_flags INTERFACE "-ffile-prefix-map=${CMAKE_SOURCE_DIR}=."
                                             "-ffile-prefix-map=${CMAKE_BINARY_DIR}=build")
endif()

set(packaging "${CMAKE_SOURCE_DIR}/packaging")
set(generated "${CMAKE_BINARY_DIR}/packaging")
file(MAKE_DIRECTORY "${generated}")

# Installs a file of the source folder as NAME.gz, compressed without name and time.
function(install_compressed component file destination)
  get_filename_component(name "${file}" NAME)
  set(result "${generated}/${component}-${name}.gz")
  add_custom_command(OUTPUT "${result}" DEPENDS "${CMAKE_SOURCE_DIR}/${file}" VERBATIM
                     COMMAND gzip -9nc "${CMAKE_SOURCE_DIR}/${file}" > "${result}")
  set_property(GLOBAL APPEND PROPERTY QOV_COMPRESSED "${result}")
  install(FILES "${result}" DESTINATION "${destination}" RENAME "${name}.gz"
          COMPONENT "${component}")
endfunction()

# Installs man pages by their section.
function(install_pages component)
  foreach(page IN LISTS ARGN)
    string(REGEX REPLACE ".*\\." "man" section "${page}")
    install_compressed(${component} "packaging/man/${page}" "share/man/${section}")
  endforeach()
endfunction()

# Installs a folder for the agent alone: FOLDER, then the rights of owner and group.
function(install_folder folder)
  install(DIRECTORY DESTINATION "${folder}" DIRECTORY_PERMISSIONS ${ARGN} COMPONENT agent)
endfunction()

# --- qov ---
set(owner OWNER_READ OWNER_WRITE OWNER_EXECUTE)
install_folder(/etc/qov ${owner} GROUP_READ GROUP_WRITE GROUP_EXECUTE)
install_folder(/var/lib/qov ${owner})
install_folder(/var/lib/qov/tmp ${owner})
install_folder(/var/log/qov ${owner} GROUP_READ GROUP_EXECUTE)
install(TARGETS qov RUNTIME DESTINATION sbin COMPONENT agent)
file(GLOB helpers CONFIGURE_DEPENDS "${packaging}/helpers/*")
install(PROGRAMS ${helpers} DESTINATION libexec/qov COMPONENT agent)
install(FILES packaging/qov.cfg DESTINATION share/qov COMPONENT agent)
install(FILES packaging/qov.service packaging/qov-watch.service packaging/qov-watch.timer
        DESTINATION /lib/systemd/system COMPONENT agent)
install(FILES packaging/qov.sysusers DESTINATION lib/sysusers.d RENAME qov.conf COMPONENT agent)
install(FILES packaging/qov.tmpfiles DESTINATION lib/tmpfiles.d RENAME qov.conf COMPONENT agent)
install(FILES packaging/qov.logrotate DESTINATION /etc/logrotate.d RENAME qov COMPONENT agent)
install_pages(agent qov.8 qov.cfg.5 qov-protocol.7)
install_compressed(agent packaging/debian/changelog share/doc/qov)
install(FILES packaging/debian/copyright SECURITY.md docs/operating.md docs/configuration.md
        DESTINATION share/doc/qov COMPONENT agent)
install(DIRECTORY packaging/examples/agent/ DESTINATION share/doc/qov/examples COMPONENT agent)
install(FILES packaging/debian/qov/lintian-overrides DESTINATION share/lintian/overrides RENAME qov
        COMPONENT agent)

# --- qov-plugin ---
install(TARGETS qovctl RUNTIME DESTINATION bin COMPONENT plugin)
file(CREATE_LINK ../../../bin/qovctl "${generated}/check_qov" SYMBOLIC)
install(FILES "${generated}/check_qov" DESTINATION lib/nagios/plugins COMPONENT plugin)
install(FILES packaging/completion/qovctl.bash DESTINATION share/bash-completion/completions
        RENAME qovctl COMPONENT plugin)
install(FILES packaging/completion/_qovctl DESTINATION share/zsh/vendor-completions
        COMPONENT plugin)
install(FILES packaging/completion/qovctl.fish DESTINATION share/fish/vendor_completions.d
        COMPONENT plugin)
install_pages(plugin qovctl.1 check_qov.1)
install_compressed(plugin packaging/debian/changelog share/doc/qov-plugin)
install(FILES packaging/debian/copyright docs/commands.md DESTINATION share/doc/qov-plugin
        COMPONENT plugin)
install(FILES packaging/examples/icinga2-qov.conf packaging/examples/nagios-qov.cfg
        DESTINATION share/doc/qov-plugin/examples COMPONENT plugin)

# The settings go into a file of another name than CPack's own: with that one it would make a target
# `package` that builds everything, tests too.
function(write_package_settings result)
  set(CPACK_OUTPUT_CONFIG_FILE "${result}")
  set(CPACK_GENERATOR DEB)
  set(CPACK_CMAKE_GENERATOR Ninja) # has no step that builds everything first
  set(CPACK_THREADS 1)
  set(CPACK_STRIP_FILES ON)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_COMPONENTS_ALL agent plugin)
  set(CPACK_PACKAGE_NAME qov)
  set(CPACK_PACKAGE_VERSION "${QOV_RELEASE}")
  set(CPACK_PACKAGE_CONTACT "The qov developers <support@qov.invalid>")
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

  set(CPACK_DEBIAN_AGENT_PACKAGE_NAME qov)
  set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_AGENT_PACKAGE_DEPENDS
      "qov-plugin (= ${QOV_RELEASE}), systemd | systemd-sysusers")
  set(CPACK_DEBIAN_AGENT_PACKAGE_SUGGESTS "logrotate, nftables, stunnel4")
  set(CPACK_DEBIAN_AGENT_DESCRIPTION "host-checking agent for a monitoring server
A daemon that a central monitoring server asks over TCP to check this host:
disk and folder sizes, files, logs, processes, CPU use, external programs,
TCP and UDP services. It answers enciphered, one request a connection.
.
The service listens on the loopback address until it is configured.")
  set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA
      "${packaging}/debian/qov/postinst;${packaging}/debian/qov/prerm;${packaging}/debian/qov/postrm;${packaging}/debian/qov/conffiles"
  )

  set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME qov-plugin)
  set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION net)
  set(CPACK_DEBIAN_PLUGIN_PACKAGE_SUGGESTS "icinga2 | nagios4 | naemon-core")
  set(CPACK_DEBIAN_PLUGIN_DESCRIPTION "client and monitoring plugin for qov agents
qovctl asks an agent anything by hand, checks an agent's configuration file,
and builds and reads packets. check_qov is the same as a plugin for Icinga 2,
Nagios and other engines that run plugins.")
  include(CPack)
endfunction()

write_package_settings("${generated}/cpack.cmake")
get_property(compressed GLOBAL PROPERTY QOV_COMPRESSED)
add_custom_target(package_files DEPENDS ${compressed})
if(NOT QOV_SANITIZE)
  # The modes of the archive's members are those that the mask allows.
  add_custom_target(package COMMAND sh -c "umask 022 && exec \"$0\" \"$@\"" ${CMAKE_CPACK_COMMAND}
                                    --config "${generated}/cpack.cmake" USES_TERMINAL VERBATIM)
  add_dependencies(package qov qovctl package_files)
endif()
