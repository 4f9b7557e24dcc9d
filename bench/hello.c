/* Prints one line: what any program that does so costs to start, and in memory. */

#include <stdio.h>

int main(void) {
  puts("hello");
  return 0;
}
