# Takes the code blocks out of a Markdown document, so that they can be built and run:
#
#   cmake -DDOCUMENT=docs/guide.md -DLANGUAGES=cpp,sh -DFILES=first.cpp,vehicle.sh -DFOLDER=out [-DUNNAMED=readme.cpp]
#         [-DROOT=top of the tree] -P ExtractBlocks.cmake
#
# A block says in its first line what it is:
#
#   ```cpp file=first.cpp             goes to that file; blocks of one file are put together in the document's order
#   ```cpp from=examples/gateway.cpp  is quoted: it must stand in that file of the tree, line for line
#
# Every block of LANGUAGES must say one of the two, or goes to UNNAMED. FILES are all that come out, no more and no
# fewer, so that no block is lost between the document and the build.
cmake_minimum_required(VERSION 3.25)

string(REPLACE "," ";" languages "${LANGUAGES}")
string(REPLACE "," ";" expected "${FILES}")
cmake_path(GET DOCUMENT FILENAME document)
file(READ "${DOCUMENT}" rest)
string(PREPEND rest "\n")
set(line 0)
set(found "")

# take(VARIABLE MARK): moves what comes before MARK from `rest` to VARIABLE and drops MARK; without MARK nothing is left.
# It goes by position: a regular expression would be slow, and a list would lose the text's semicolons.
function(take variable mark)
  string(FIND "${rest}" "${mark}" end)
  if(end EQUAL -1)
    set(rest "" PARENT_SCOPE)
    return()
  endif()
  string(SUBSTRING "${rest}" 0 ${end} taken)
  string(LENGTH "${mark}" length)
  math(EXPR end "${end} + ${length}")
  string(SUBSTRING "${rest}" ${end} -1 left)
  string(REGEX REPLACE "[^\n]" "" newlines "${taken}${mark}")
  string(LENGTH "${newlines}" lines)
  math(EXPR line "${line} + ${lines}")
  set(${variable} "${taken}" PARENT_SCOPE)
  set(rest "${left}" PARENT_SCOPE)
  set(line ${line} PARENT_SCOPE)
endfunction()

while(TRUE)
  take(prose "\n```")
  if(rest STREQUAL "")
    break()
  endif()
  take(info "\n")
  set(first ${line})
  set(place "${document}:${first}")
  take(code "\n```")
  take(fence "\n")
  string(REGEX MATCH "^[a-z]+" language "${info}")
  if(NOT language IN_LIST languages)
    continue()
  endif()
  string(APPEND code "\n")

  if(info MATCHES " from=([^ ]+)$")
    file(READ "${ROOT}/${CMAKE_MATCH_1}" source)
    string(FIND "\n${source}" "\n${code}" position)
    if(position EQUAL -1)
      message(FATAL_ERROR "${place}: this block is not, or no longer, in ${CMAKE_MATCH_1}")
    endif()
    continue()
  elseif(info MATCHES " file=([^ ]+)$")
    set(name "${CMAKE_MATCH_1}")
  elseif(UNNAMED)
    set(name "${UNNAMED}")
  else()
    message(FATAL_ERROR "${place}: a ${language} block must say file=NAME or from=PATH")
  endif()
  if(NOT name IN_LIST expected)
    message(FATAL_ERROR "${place}: ${name} is not among the files that the build knows: ${FILES}")
  endif()
  list(APPEND found "${name}")
  if(language STREQUAL "cpp") # the compiler then speaks of the document
    string(APPEND text_${name} "#line ${first} \"${document}\"\n")
  endif()
  string(APPEND text_${name} "${code}")
endwhile()

foreach(name IN LISTS expected)
  if(NOT name IN_LIST found)
    message(FATAL_ERROR "${document}: no block goes to ${name}")
  endif()
  file(WRITE "${FOLDER}/${name}" "${text_${name}}")
endforeach()
