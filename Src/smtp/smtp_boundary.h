#ifndef SMTP_SMTP_BOUNDARY_H
#define SMTP_SMTP_BOUNDARY_H

// "mime" and ten random letters A..Z: 14 characters and the terminator.
void smtp_gen_mime_boundary(char* destination);

#endif
