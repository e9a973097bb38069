# orvane_add_resources(<target> <c-name> <base-dir> <file>...)
# Compiles the files (paths relative to base-dir) into a GResource bundle under
# the prefix /app/orvane/Orvane and adds the generated C source to <target>.
# The bundle is registered by calling <c-name>_register_resource().
function(orvane_add_resources target cname basedir)
  set(xml "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<gresources>\n  <gresource prefix=\"/app/orvane/Orvane\">\n")
  set(deps "")
  foreach(f ${ARGN})
    string(APPEND xml "    <file compressed=\"true\">${f}</file>\n")
    list(APPEND deps "${basedir}/${f}")
  endforeach()
  string(APPEND xml "  </gresource>\n</gresources>\n")
  set(xml_file "${CMAKE_CURRENT_BINARY_DIR}/${cname}.gresource.xml")
  file(CONFIGURE OUTPUT "${xml_file}" CONTENT "${xml}")
  set(out "${CMAKE_CURRENT_BINARY_DIR}/${cname}-resources.c")
  add_custom_command(
    OUTPUT "${out}"
    COMMAND ${GLIB_COMPILE_RESOURCES} --target=${out} --sourcedir=${basedir}
            --generate-source --manual-register --c-name ${cname} ${xml_file}
    DEPENDS ${xml_file} ${deps}
    COMMENT "Compiling resources ${cname}")
  set_source_files_properties("${out}" PROPERTIES COMPILE_OPTIONS "-w")
  target_sources(${target} PRIVATE "${out}")
endfunction()
