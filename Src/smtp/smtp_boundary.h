#ifndef SMTP_SMTP_BOUNDARY_H
#define SMTP_SMTP_BOUNDARY_H

// Writes a MIME boundary: "mime", ten random letters A..Z and a terminator, 15 bytes in all.
void smtp_gen_mime_boundary(char* destination);

#endif
