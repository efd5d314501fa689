# The web page (web/: TypeScript, Preact, Vite) built with npm and embedded
# into a static library, so that `quillon serve` alone serves it. npm ci runs
# again only when the lock file changes; the page is rebuilt when a source does.
function(add_web_app target)
  find_program(NPM npm REQUIRED)
  find_program(NODE node REQUIRED)
  set(web ${CMAKE_SOURCE_DIR}/web)
  set(dist ${CMAKE_BINARY_DIR}/web-dist)
  set(stamp ${CMAKE_BINARY_DIR}/web-npm-ci.stamp)
  set(out ${CMAKE_BINARY_DIR}/embedded_web.cpp)
  file(GLOB_RECURSE web_srcs CONFIGURE_DEPENDS ${web}/src/*)
  add_custom_command(
    OUTPUT ${stamp}
    COMMAND ${NPM} ci --no-audit --no-fund --loglevel=error
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    WORKING_DIRECTORY ${web}
    DEPENDS ${web}/package.json ${web}/package-lock.json
    COMMENT "Installing the web page's packages (npm ci)"
    VERBATIM)
  add_custom_command(
    OUTPUT ${out}
    COMMAND ${CMAKE_COMMAND} -E env QUILLON_WEB_OUT=${dist} ${NPM} run --silent build
    COMMAND ${CMAKE_COMMAND} -DDIR=${dist} -DOUT=${out} -P ${CMAKE_SOURCE_DIR}/cmake/GenerateWebAssets.cmake
    WORKING_DIRECTORY ${web}
    DEPENDS ${stamp} ${web_srcs} ${web}/index.html ${web}/vite.config.ts ${web}/tsconfig.json
            ${CMAKE_SOURCE_DIR}/cmake/GenerateWebAssets.cmake
    COMMENT "Building the web page"
    VERBATIM)
  add_library(${target} STATIC ${out})
endfunction()
