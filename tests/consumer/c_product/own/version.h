/* The product's own: it has this name, this guard and this function whatever it links. */
#ifndef VERSION_H
#define VERSION_H

const char* productVersion(void);

#endif
