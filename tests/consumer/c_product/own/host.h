/* The product's own: the machine that it calls home. */
#ifndef HOST_H
#define HOST_H

typedef struct Host {
  const char* name;
} Host;

#endif
