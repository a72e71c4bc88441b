# Fails unless the README holds examples/first.cpp, whole and to the letter.
file(READ ${CMAKE_CURRENT_LIST_DIR}/../README.md readme)
file(READ ${CMAKE_CURRENT_LIST_DIR}/../examples/first.cpp example)
string(FIND "${readme}" "```cpp\n${example}```" position)
if(position EQUAL -1)
    message(FATAL_ERROR "README.md does not hold examples/first.cpp as it is built")
endif()
