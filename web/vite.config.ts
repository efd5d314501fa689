import { defineConfig } from 'vitest/config';

// The daemon embeds what this writes: index.html (never cached) and the
// hashed files under assets/ (cached for good, their names change with them).
export default defineConfig({
  esbuild: { jsx: 'automatic', jsxImportSource: 'preact' },
  build: {
    outDir: process.env.QUILLON_WEB_OUT ?? 'dist',
    emptyOutDir: true,
    assetsInlineLimit: 0,
    modulePreload: { polyfill: false },
    target: 'es2020',
    reportCompressedSize: false,
  },
  test: { environment: 'node', include: ['src/**/*.test.ts'] },
});
