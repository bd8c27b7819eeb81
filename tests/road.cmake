# Draws docs/road.svg from what the targets link: an arrow leads from a target to what it uses. The
# drawing of this build goes to docs/ of the build tree, and the test `road` compares the two; when
# they differ for good, copy the new one over.
set(roadNodes # target, column and row in half boxes, what stands below its name
  "kt7|6|0|command line" "kt7_tool|6|2|commands" "kt7_tool_files|9|4|one file per format"
  "kt7_demo_scene|7|4|demo scene" "kt7photo|2|2|photographs: library"
  "kt7_photo|2|4|photographs: engine" "kt7lib|4|6|twelve functions: library"
  "kt7_qxenhlib|4|8|denoising engine" "kt7_qxutils|4|10|images, tiles, threads"
  "kt7_prim|3|12|planes, kernels")
set(boxWidth 190)
set(boxHeight 44)
set(boxes "")
set(arrows "")
set(roadTargets "")
foreach(node IN LISTS roadNodes)
  string(REPLACE "|" ";" node "${node}")
  list(GET node 0 name)
  if(NOT TARGET ${name})
    return() # a build without the tools
  endif()
  list(APPEND roadTargets ${name})
  list(GET node 1 column)
  list(GET node 2 row)
  math(EXPR ${name}X "${column} * 110 - 100")
  math(EXPR ${name}Y "${row} * 42 + 10")
  list(GET node 3 ${name}Text)
endforeach()
foreach(name IN LISTS roadTargets)
  math(EXPR middle "${${name}X} + ${boxWidth} / 2")
  math(EXPR line1 "${${name}Y} + 19")
  math(EXPR line2 "${${name}Y} + 35")
  string(APPEND boxes
    "<rect x=\"${${name}X}\" y=\"${${name}Y}\" width=\"${boxWidth}\" height=\"${boxHeight}\" rx=\"6\"/>\n"
    "<text x=\"${middle}\" y=\"${line1}\" class=\"name\">${name}</text>\n"
    "<text x=\"${middle}\" y=\"${line2}\">${${name}Text}</text>\n")
  get_target_property(uses ${name} LINK_LIBRARIES)
  list(REMOVE_DUPLICATES uses)
  foreach(used IN LISTS uses)
    if(used IN_LIST roadTargets)
      math(EXPR fromY "${${name}Y} + ${boxHeight}")
      math(EXPR toX "${${used}X} + ${boxWidth} / 2")
      string(APPEND arrows
        "<path d=\"M${middle} ${fromY}L${toX} ${${used}Y}\" marker-end=\"url(#tip)\"/>\n")
    endif()
  endforeach()
endforeach()
file(WRITE ${PROJECT_BINARY_DIR}/docs/road.svg
"<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"1100\" height=\"570\" viewBox=\"0 0 1100 570\">
<style>rect{fill:#eef3f8;stroke:#456}path{stroke:#456;fill:none}text{font:12px sans-serif;text-anchor:middle;fill:#223}.name{font-weight:bold}</style>
<defs><marker id=\"tip\" markerWidth=\"9\" markerHeight=\"8\" refX=\"8\" refY=\"4\" orient=\"auto\"><path d=\"M0 0L8 4L0 8\"/></marker></defs>
<rect width=\"1100\" height=\"570\" style=\"fill:#fff;stroke:none\"/>
${arrows}${boxes}</svg>
")
add_test(NAME road COMMAND ${CMAKE_COMMAND} -E compare_files --ignore-eol
  ${PROJECT_BINARY_DIR}/docs/road.svg ${PROJECT_SOURCE_DIR}/docs/road.svg)
