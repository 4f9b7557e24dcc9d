/* Prints one line, to measure what starting any program costs. */

#include <stdio.h>

int main(void) {
  puts("hello");
  return 0;
}
