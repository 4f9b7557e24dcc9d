# Puts the documentation page together: its frame, the style, the pictures and both manual pages, in one file.
#
#   cmake -D MANDOC=mandoc -D VERSION=1.2.3 -D PAGE=index.html -P make-page.cmake
#
# In the frame, @name@ stands for the part of that name.

cmake_minimum_required(VERSION 3.25)

# The text of a manual page as part of a larger page. Two manual pages and the frame share one document, so ids get the
# page's name in front, and headings sink below the frame's. Of the pages referred to, only these two can be followed.
function(read_manual name section)
  execute_process(
    COMMAND ${MANDOC} -T html -O fragment ${CMAKE_CURRENT_LIST_DIR}/../data/man/${name}.${section}
    OUTPUT_VARIABLE html
    COMMAND_ERROR_IS_FATAL ANY
  )
  string(FIND "${html}" "<section " start)
  string(FIND "${html}" "</section>" end REVERSE)
  math(EXPR length "${end} + 10 - ${start}")
  string(SUBSTRING "${html}" ${start} ${length} html)

  string(REGEX REPLACE " id=\"" " id=\"${name}." html "${html}")
  string(REGEX REPLACE " href=\"#" " href=\"#${name}." html "${html}")
  string(REGEX REPLACE "(</?h)2" "\\15" html "${html}")
  string(REGEX REPLACE "(</?h)1" "\\14" html "${html}")
  string(REGEX REPLACE "<a class=\"Xr\">(nebulark-[a-z]+)" "<a class=\"Xr\" href=\"#\\1\">\\1" html "${html}")
  set(${name} "${html}" PARENT_SCOPE)
endfunction()

# A picture that README shows too has a style of its own. Here style.css says the same.
function(read_part name file)
  file(READ ${CMAKE_CURRENT_LIST_DIR}/${file} text)
  string(REGEX REPLACE "<style>.*</style>\n" "" text "${text}")
  set(${name} "${text}" PARENT_SCOPE)
endfunction()

read_part(style style.css)
file(GLOB pictures ${CMAKE_CURRENT_LIST_DIR}/pictures/*.svg)
foreach(picture IN LISTS pictures)
  cmake_path(GET picture STEM name)
  read_part(${name} pictures/${name}.svg)
endforeach()
read_manual(nebulark-ctl 1)
read_manual(nebulark-preferences 5)

configure_file(${CMAKE_CURRENT_LIST_DIR}/index.html.in ${PAGE} @ONLY)
